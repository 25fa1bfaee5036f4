// The exported entry point the host calls for every GENOSTAT command.
#include <memory>
#include <new>
#include <string>

#include "entry/GenoStatCommand.h"
#include "entry/GenomicParserException.h"
#include "entry/Texts.h"
#include "host/procedure.h"
#include "host/tokens.h"
#include "jobs/GenoStatAlgoManager.h"

namespace {

void runCommand() {
  const std::string procedureName = texts::kProcedureName;
  BpProcedure procedure(procedureName.c_str(), 10);
  ProcedureDataSource dataSource;
  ZORV_TokenSequence tokens(true);
  // Without a record the command is still parsed, so the user sees its errors.
  std::unique_ptr<GenoJobSettings> settings(new (std::nothrow) GenoJobSettings());
  GenoStatCommand command(&tokens, settings.get());
  command.parseAndInterpret();
  // A failed command hands nothing on; its record goes with the unique_ptr.
  if (!settings || command.parseFailed()) return;

  GenoStatAlgoManager* manager = GenoStatAlgoManager::getManagerInstance();
  if (!manager) return;
  switch (settings->mode) {
    case JobMode::Print:
      manager->postOutputToDisplay(settings.get(), &procedure);
      break;
    case JobMode::Delete:
      manager->cleanUpCSVFileCreated(settings.get());
      break;
    case JobMode::Submit:
    default:
      // The manager owns the record from here on, even if queueing throws halfway.
      manager->addJobToQueue(settings.release());
      break;
  }
}

}  // namespace

extern "C" GENOSTAT_API void GENOSTAT() {
  // Command errors are reported inside runCommand; this only keeps anything else (a failure to
  // create the manager or start its worker) from unwinding into the host's C caller.
  try {
    runCommand();
  } catch (const std::exception&) {
    try {
      ParserMessage message;
      message.SetCommandName(texts::kProcedureName);
      message.SetProcedureTitle(texts::kProcedureName);
      message.GenericError(GenomicParserException::baseText(0), nullptr, nullptr, nullptr, nullptr, nullptr);
    } catch (...) {
    }
  } catch (...) {
  }
}
