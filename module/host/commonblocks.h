// Host common-block library: the host's shared data blocks, cached by the module at load.
#pragma once

#include "host/host_api.h"

extern "C" {
ZORV_HOST_API void* pvGetCmnBpr();
ZORV_HOST_API void* pvGetCmaDic();
ZORV_HOST_API void* pvGetCmaGlb();
ZORV_HOST_API void* pvGetCmaMch();
ZORV_HOST_API void* pvGetCmaObv();
ZORV_HOST_API void* pvGetCmaSym();
ZORV_HOST_API void* pvGetCmaSys();
ZORV_HOST_API void* pvGetCmnDic();
ZORV_HOST_API void* pvGetCmnDmo();
ZORV_HOST_API void* pvGetCmnGlb();
ZORV_HOST_API void* pvGetCmnInc();
ZORV_HOST_API void* pvGetCmnIo();
ZORV_HOST_API void* pvGetCmnLoc();
ZORV_HOST_API void* pvGetCmnMch();
ZORV_HOST_API void* pvGetCmnMcs();
ZORV_HOST_API void* pvGetCmnObv();
ZORV_HOST_API void* pvGetCmnStk();
ZORV_HOST_API void* pvGetCmnSym();
ZORV_HOST_API void* pvGetCmnSys();
ZORV_HOST_API void* pvGetCmnWrk();
ZORV_HOST_API void* pvGetCmnDtm();
ZORV_HOST_API void* pvGetCmnBox();
}
