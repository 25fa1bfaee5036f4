// Windows hands a program its command line in UTF-16 (the ANSI argv of main would lose every
// letter outside the code page), and opens the standard streams in text mode, which would turn
// "\n" into "\r\n".
#include <fcntl.h>
#include <io.h>

#include <cstdio>
#include <string>
#include <vector>

#include "platform/program_entry.h"
#include "platform/win32/wide.h"

int wmain(int argc, wchar_t** argv) {
  ::_setmode(::_fileno(stdin), _O_BINARY);
  ::_setmode(::_fileno(stdout), _O_BINARY);
  ::_setmode(::_fileno(stderr), _O_BINARY);
  std::vector<std::string> args;
  args.reserve(static_cast<std::size_t>(argc));
  for (int i = 0; i < argc; ++i) args.push_back(genostat::platform::wideToUtf8(argv[i]));
  return genostat::programMain(args);
}
