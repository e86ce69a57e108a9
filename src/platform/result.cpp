#include "platform/result.h"

#include <cerrno>
#include <cstdio>

namespace orvanta {

std::string Result::Hex() const {
    char text[16];
    std::snprintf(text, sizeof text, "0x%08X", static_cast<unsigned>(code_));
    return text;
}

std::string Result::Reason() const {
    switch (code_) {
        case 0x00000000u:
            return "success";
        case 0x00000001u:
            return "no such frame, or the file was cut short";
        case 0x80004004u:
            return "the decode was aborted";
        case 0x80004005u:
            return "unspecified failure";
        case 0x8000FFFFu:
            return "unexpected failure";
        case 0x80004001u:
            return "not implemented";
        case 0x8007000Eu:
            return "not enough memory";
        case 0x80070057u:
            return "invalid argument";
        case 0x80070005u:
            return "access denied";
        case 0x80070020u:
            return "the file is in use by another program";
        case 0x80070002u:
            return "file not found";
        case 0x80070003u:
            return "folder not found";
        case 0x80070070u:
            return "the disk is full";
        case 0x8007065Eu:
            return "no decoder reads this file";
        case 0x88982F51u:
            return "the picture is larger than this program accepts";
        case 0x88982F60u:
            return "the picture data is damaged";
        case 0x88982F61u:
            return "the file's header is missing or damaged";
        case 0x88982F62u:
            return "the frame is missing";
        case 0x88982F70u:
            return "the picture data ends or breaks early";
        case 0x88982F80u:
            return "the pixel format is not supported";
        case 0x88982F81u:
            return "the operation is not supported for this file";
        default:
            break;
    }
    if ((code_ & 0xFFFF0000u) == 0x80070000u) {
        return "system error " + std::to_string(code_ & 0xFFFFu);
    }
    return Failed() ? "failure" : "success";
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
