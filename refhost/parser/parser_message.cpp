// ParserMessage: a procedure's own command errors, recorded like the parser's.
#include "host/parser.h"
#include "zorvhost/client.h"

ParserMessage::ParserMessage() = default;
ParserMessage::~ParserMessage() = default;

void ParserMessage::SetCommandName(const char* name) { commandName_ = name ? name : ""; }

void ParserMessage::SetProcedureTitle(const char* title) { procedureTitle_ = title ? title : ""; }

void ParserMessage::GenericError(const char* text, const char* insert1, const char* insert2,
                                 const char* insert3, const char* insert4, const char* insert5) {
  std::string message = text ? text : "";
  for (const char* insert : {insert1, insert2, insert3, insert4, insert5}) {
    if (insert) {
      message += ' ';
      message += insert;
    }
  }
  zorvhost::reportCommandError(commandName_, message);
}
