#include "platform/result.h"

#include <cerrno>
#include <cstdio>

namespace orvanta {

std::string Result::Hex() const {
    char text[16];
    std::snprintf(text, sizeof text, "0x%08X", static_cast<unsigned>(code_));
    return text;
}

Result ResultFromErrno(int error) {
    // The platform's own numbers for the conditions callers tell apart; anything else keeps
    // its errno value in the low word so that it still reads as a system error.
    switch (error) {
        case 0:
            return S_OK;
        case ENOENT:
            return HresultFromWin32(ERROR_FILE_NOT_FOUND);
        case ENOTDIR:
            return HresultFromWin32(ERROR_PATH_NOT_FOUND);
        case EACCES:
        case EPERM:
        case EROFS:
            return HresultFromWin32(ERROR_ACCESS_DENIED);
        case ENOMEM:
            return E_OUTOFMEMORY;
        case ENOSPC:
        case EDQUOT:
            return E_DISK_FULL;
        case EBUSY:
        case ETXTBSY:
            return E_SHARING_VIOLATION;
        case EINVAL:
            return E_INVALIDARG;
        default:
            return HresultFromWin32(error);
    }
}

}  // namespace orvanta
