// GENOSTAT's grammar exactly as the module declares it, for the parser's tests and fuzzer: the
// parser must serve that procedure with no special case for it.
#pragma once

#include "host/parser.h"

namespace parsertest {

void buildGenostatGrammar(CommandDescriptor& command);

}  // namespace parsertest
