// zorv's entry point on Windows: the command line arrives as UTF-16 (paths with any letters), zorv
// works in UTF-8.
#include <windows.h>

#include <string>
#include <vector>

#include "platform/platform.h"
#include "utf16.h"

int wmain(int argc, wchar_t** argv) {
  // Output is UTF-8: a console shows it right only with this code page.
  SetConsoleOutputCP(CP_UTF8);
  std::vector<std::string> args;
  args.reserve(static_cast<size_t>(argc));
  for (int i = 0; i < argc; ++i) args.push_back(zorv::platform::narrow(argv[i]));
  std::vector<char*> pointers;
  for (auto& arg : args) pointers.push_back(arg.data());
  pointers.push_back(nullptr);
  return zorv::consoleMain(argc, pointers.data());
}
