// Host control library: the job metadata that the host's client attaches to the next command.
#pragma once

#include <string>

#include "host/host_api.h"

// The metadata JSON the client set for the command being run; empty when there is none.
// Threads: host command thread.
ZORV_HOST_API std::string GetMetaDataJson();

// Forgets the metadata, so that it is used for one command only.
ZORV_HOST_API void resetMetadataJson();
