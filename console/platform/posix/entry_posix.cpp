// zorv's entry point on POSIX: the arguments are already bytes, taken as UTF-8.
#include "platform/platform.h"

int main(int argc, char** argv) { return zorv::consoleMain(argc, argv); }
