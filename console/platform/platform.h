// What zorv needs from the operating system, behind one interface: loading the module, waking the
// main thread from other threads and from Ctrl-C, reading standard input while it waits for such
// wake-ups, temporary folders, and files named by UTF-8 paths. One implementation per system, in
// posix/ and win32/.
#pragma once

#include <cstdio>
#include <memory>
#include <string>

namespace zorv::platform {

// ---- The module -------------------------------------------------------------------------------

// The file name of the module (found beside zorv).
const char* moduleFileName();

// The folder that holds the running zorv (UTF-8, with a trailing separator); empty if unknown.
std::string programFolder();

// Loads the library `file` found beside zorv (normally the module); null with the reason in
// `error` on failure. It stays loaded for the life of the process.
void* loadModule(const std::string& file, std::string& error);

// The address of the exported function `name`, null when the module has none.
void* findFunction(void* module, const char* name);

// ---- Waking the main thread -------------------------------------------------------------------

// A channel of single bytes to the main thread: any thread (and, on POSIX, a signal handler) posts,
// the main thread waits for a post, then takes what was posted. A byte 'q' asks it to quit.
class WakeChannel {
 public:
  // Throws std::runtime_error when the system cannot provide one.
  WakeChannel();
  ~WakeChannel();
  WakeChannel(const WakeChannel&) = delete;
  WakeChannel& operator=(const WakeChannel&) = delete;

  // [any] Never blocks; when many posts are pending one may be dropped, never all of them, and
  // never a 'q'.
  void post(char byte);
  // [main] Every byte posted since the last take, in order (possibly empty).
  std::string take();
  // [main] Waits until a byte is pending or `timeoutMs` have passed (-1: no limit). True when one
  // is pending. Does not take it.
  bool wait(int timeoutMs);

  struct State;

 private:
  friend class InputReader;
  friend bool catchInterrupts(WakeChannel& channel, std::string& error);
  std::unique_ptr<State> state_;
};

// Makes Ctrl-C (and, on POSIX, SIGTERM) post 'q' to `channel` instead of ending the process, so
// the console can cancel its jobs first. On POSIX, Ctrl-C (SIGINT) posts 'i' instead: the console
// first offers it to the input reader, which drops a half-typed line with it. The channel must
// outlive the process's last interrupt.
// False with the reason in `error` when the handler cannot be installed.
bool catchInterrupts(WakeChannel& channel, std::string& error);

// Delivers an interrupt to this process as Ctrl-C would (for tests of catchInterrupts).
bool interruptSelf();

// ---- Standard input -----------------------------------------------------------------------------

// Reads standard input in the order it arrives while watching a WakeChannel.
class InputReader {
 public:
  enum class Result { Data, Woken, End, Failed };

  explicit InputReader(WakeChannel& channel);
  ~InputReader();
  InputReader(const InputReader&) = delete;
  InputReader& operator=(const InputReader&) = delete;

  // True when standard input is a terminal (the console then prompts).
  bool interactive() const;
  // True when lines are edited here (a POSIX terminal: keys, history); the reader then draws the
  // prompt and the line typed so far, and prompt() is how the console shows its prompt.
  bool editing() const;
  // [editing] Shows `text` as the prompt with an empty line, or, while a line is being typed, draws
  // the prompt and the typed text again (after output went over them).
  void prompt(const std::string& text);
  // Drops a half-typed line (Ctrl-C at the prompt), leaving it visible above; false when nothing
  // was typed.
  bool discardTypedLine();
  // Blocks until input arrives (appended to `data`: Data), a byte is pending in the channel
  // (Woken; the caller takes it), input ends (End) or reading fails (Failed, reason in `error`).
  Result next(std::string& data, std::string& error);

  struct State;

 private:
  WakeChannel& channel_;
  std::shared_ptr<State> state_;
};

// ---- Terminal, files and folders --------------------------------------------------------------

// True when standard output is a terminal that can show a status line (carriage return and erase
// to the end of the line).
bool standardOutputIsTerminal();

// Redirects standard output to standard error for the rest of the process (children included) and
// returns a stream on the original standard output; null with the reason in `error` on failure.
std::FILE* takeStandardOutput(std::string& error);

// Opens a file named by a UTF-8 path for writing (binary, not inherited by children); null with
// errno set on failure.
std::FILE* openForWriting(const std::string& path);

// Creates a new, empty folder for this run's temporary files in `base` (empty: the system's
// temporary folder); false with the reason in `error`.
bool makeTemporaryFolder(std::string& path, std::string& error, const std::string& base = "");

}  // namespace zorv::platform

namespace zorv {
// zorv's main, called by the system's entry point with the arguments in UTF-8.
int consoleMain(int argc, char** argv);
}  // namespace zorv
