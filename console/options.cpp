#include "options.h"

#include <rapidjson/document.h>
#include <rapidjson/error/en.h>

#include <cstring>

namespace zorv {

namespace {

// A language code becomes a folder name under strings/, so it may not climb out of it.
bool isLanguageCode(const std::string& code) {
  if (code.empty() || code.size() > 16) return false;
  for (char c : code) {
    bool ok = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
              c == '-' || c == '_';
    if (!ok) return false;
  }
  return true;
}

}  // namespace

std::string usageText() {
  return "usage: zorv [options] [FILE.sps ...]\n"
         "Runs GENOSTAT syntax from files, from -e texts or, with neither, from standard input\n"
         "(each command as soon as its last line has arrived). A command ends with a period at\n"
         "the end of a line. At a command's start, :jobs lists the jobs, :cancel NAME cancels\n"
         "one and :quit cancels the rest and ends the console.\n"
         "\n"
         "  -e SYNTAX            run SYNTAX (repeatable; runs in order with the files)\n"
         "  --batch              command-line mode: the host reports no interactive client\n"
         "  --events FILE|-      write one JSON object per line for every error and job message;\n"
         "                       with '-' they own standard output and all else goes to stderr\n"
         "  --install-dir DIR    host installation folder (launcher, scripts/, strings/)\n"
         "  --temp-dir DIR       folder for the jobs' result files (default: a new folder\n"
         "                       under $TMPDIR or /tmp, removed at exit)\n"
         "  --metadata JSON      job metadata handed to the module before each GENOSTAT command\n"
         "  --dataset NAME       open a dataset of that name first (repeatable)\n"
         "  --lang CODE          language of the string tables (default en)\n"
         "  --no-wait            at the end of input cancel the jobs still queued or running\n"
         "                       instead of waiting for them\n"
         "  --output FILE.html   write the whole session's output (tables, errors, job messages)\n"
         "                       as one HTML page when zorv ends\n"
         "  -h, --help           show this text\n"
         "\n"
         "Jobs run one at a time in submission order; when one ends, zorv runs the syntax it\n"
         "sends (its summary, the import of its results, its statistics, the clean-up).\n"
         "Ctrl-C cancels the queued and running jobs and leaves once none is left.\n"
         "\n"
         "Exit status: 0 when every command succeeded, 1 when a command or a command of a\n"
         "job's syntax failed, or a job failed or ended without a result (a cancelled job is\n"
         "no failure), 2 on a usage or start-up error.\n";
}

bool parseOptions(int argc, const char* const* argv, Options& options, std::string& error) {
  bool optionsEnded = false;
  bool eventsGiven = false;
  for (int i = 1; i < argc; ++i) {
    std::string arg = argv[i];
    if (optionsEnded || arg == "-" || arg.empty() || arg[0] != '-') {
      if (arg == "-" && !optionsEnded) {
        options.sources.push_back({Source::Kind::StandardInput, ""});
      } else {
        options.sources.push_back({Source::Kind::File, arg});
      }
      continue;
    }
    if (arg == "--") {
      optionsEnded = true;
      continue;
    }
    // --name=value is accepted for every option that takes a value.
    std::string name = arg, value;
    bool inlineValue = false;
    if (arg.compare(0, 2, "--") == 0) {
      size_t eq = arg.find('=');
      if (eq != std::string::npos) {
        name = arg.substr(0, eq);
        value = arg.substr(eq + 1);
        inlineValue = true;
      }
    }
    auto takesValue = [&](const std::string& n) {
      return n == "-e" || n == "--events" || n == "--install-dir" || n == "--temp-dir" ||
             n == "--metadata" || n == "--dataset" || n == "--lang" || n == "--output";
    };
    if (!takesValue(name)) {
      if (inlineValue) {
        error = "option '" + name + "' takes no value";
        return false;
      }
      if (name == "--batch") {
        options.batch = true;
      } else if (name == "--no-wait") {
        options.waitForJobs = false;
      } else if (name == "-h" || name == "--help") {
        options.help = true;
      } else {
        error = "unknown option '" + arg + "' (try --help)";
        return false;
      }
      continue;
    }
    if (!inlineValue) {
      if (i + 1 >= argc) {
        error = "option '" + name + "' needs a value";
        return false;
      }
      value = argv[++i];
    }
    if (name == "-e") {
      options.sources.push_back({Source::Kind::Text, value});
    } else if (name == "--events") {
      if (eventsGiven) {
        error = "option '--events' given twice";
        return false;
      }
      if (value.empty()) {
        error = "option '--events' needs a file name or '-'";
        return false;
      }
      eventsGiven = true;
      options.eventsPath = value;
    } else if (name == "--output") {
      if (value.empty()) {
        error = "option '--output' needs a file name";
        return false;
      }
      if (!options.outputPath.empty()) {
        error = "option '--output' given twice";
        return false;
      }
      options.outputPath = value;
    } else if (name == "--install-dir" || name == "--temp-dir") {
      if (value.empty()) {
        error = "option '" + name + "' needs a folder";
        return false;
      }
      (name == "--install-dir" ? options.installDir : options.tempDir) = value;
    } else if (name == "--metadata") {
      rapidjson::Document doc;
      doc.Parse(value.c_str(), value.size());
      if (doc.HasParseError()) {
        error = "--metadata is not valid JSON: " +
                std::string(rapidjson::GetParseError_En(doc.GetParseError())) + " (at offset " +
                std::to_string(doc.GetErrorOffset()) + ")";
        return false;
      }
      if (!doc.IsObject()) {
        error = "--metadata must be a JSON object";
        return false;
      }
      options.metadataJson = value;
      options.haveMetadata = true;
    } else if (name == "--dataset") {
      if (value.empty()) {
        error = "option '--dataset' needs a name";
        return false;
      }
      options.datasets.push_back(value);
    } else if (name == "--lang") {
      if (!isLanguageCode(value)) {
        error = "--lang '" + value + "' is not a language code (letters, digits, '-', '_')";
        return false;
      }
      options.language = value;
    }
  }
  return true;
}

}  // namespace zorv
