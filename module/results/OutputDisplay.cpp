// GENOSTAT /PRINT: a finished job's summary.
#include <cstdint>
#include <cstdio>
#include <string>

#include "entry/Texts.h"
#include "host/procedure.h"
#include "jobs/GenoStatAlgoManager.h"

void GenoStatAlgoManager::generateMessageString(GenoJobSettings* settings) {
  if (!settings) return;
  switch (settings->messageCode) {
    case 100:
      // No blank after the colon: the sample count follows it directly.
      settings->messageText = getLocalizedString(texts::kValid) + std::to_string(settings->sampleCount) +
                              " " + getLocalizedString(texts::kFastqFilesDetected);
      break;
    case 101:
      settings->messageText = getLocalizedString(texts::kError) + getLocalizedString(texts::kGenericError);
      break;
    default: {
      // A failed analysis carries 200 plus the script's exit code. Wrapping subtraction: a code near
      // the bottom of the range must not overflow on its way to the "unknown" row.
      const auto exitCode =
          static_cast<int32_t>(static_cast<uint32_t>(settings->messageCode) - static_cast<uint32_t>(200));
      settings->messageText = getErrorMessageTemplate(exitCode);
      break;
    }
  }
}

void GenoStatAlgoManager::postOutputToDisplay(GenoJobSettings* settings, BpProcedure* procedure) {
  if (!settings) return;
  (void)procedure;  // the output tables will be emitted through it
  generateMessageString(settings);
  const std::string dataset = settings->sampleCount < 1 ? getLocalizedString(texts::kNone) : settings->jobName;

  // Plain summary until the output tables render it.
  std::string line = std::string(texts::kProcedureName) + " " + settings->jobName + ": ";
  line += getLocalizedString(texts::kSamples) + " " + std::to_string(settings->sampleCount) + ", ";
  line += getLocalizedString(texts::kVariables) + " " + std::to_string(settings->variableCount) + ". ";
  const std::string message = getLocalizedString(settings->messageText);
  line += getLocalizedString(texts::kMessage) + ": " + message;
  if (message.empty() || message.back() != '.') line += '.';
  line += " " + getLocalizedString(texts::kDataset) + ": " + dataset;
  std::fputs(line.c_str(), stdout);
  std::fputc('\n', stdout);
  std::fflush(stdout);
}
