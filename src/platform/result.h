// The 32-bit result code that operations return at their edges. The numeric values are the
// ones the design's subsystems exchange (S_FALSE for "frame not present", E_ABORT for an
// aborted decode, the sharing violation the mark writer retries, ...), so a code printed
// as 0x%08X means the same thing everywhere. Immutable value type; free to share.
#pragma once

#include <cstdint>
#include <string>

namespace orvanta {

class [[nodiscard]] Result {
public:
    constexpr Result() = default;
    constexpr explicit Result(std::uint32_t code) : code_(code) {}

    constexpr std::uint32_t Code() const { return code_; }
    // Success codes have the top bit clear (S_OK, S_FALSE).
    constexpr bool Succeeded() const { return (code_ & 0x80000000u) == 0; }
    constexpr bool Failed() const { return !Succeeded(); }
    constexpr bool operator==(const Result&) const = default;

    // "0x8007000E" style, as the command-line tool and the logs print codes.
    std::string Hex() const;
    // A short reason in words ("the file is not a picture this program reads").
    std::string Reason() const;

private:
    std::uint32_t code_ = 0;
};

// Win32 error codes that cross subsystem boundaries (the settings store returns these).
inline constexpr long ERROR_SUCCESS = 0;
inline constexpr long ERROR_FILE_NOT_FOUND = 2;
inline constexpr long ERROR_PATH_NOT_FOUND = 3;
inline constexpr long ERROR_ACCESS_DENIED = 5;
inline constexpr long ERROR_INVALID_HANDLE = 6;
inline constexpr long ERROR_OUTOFMEMORY = 14;
inline constexpr long ERROR_INVALID_DATA = 13;
inline constexpr long ERROR_SHARING_VIOLATION = 32;
inline constexpr long ERROR_HANDLE_DISK_FULL = 39;
inline constexpr long ERROR_INVALID_PARAMETER = 87;
inline constexpr long ERROR_MORE_DATA = 234;
inline constexpr long ERROR_NO_MORE_ITEMS = 259;
inline constexpr long ERROR_BADDB = 1009;
inline constexpr long ERROR_KEY_DELETED = 1018;
inline constexpr long ERROR_UNSUPPORTED_TYPE = 1630;

constexpr Result HresultFromWin32(long error) {
    return error <= 0 ? Result(static_cast<std::uint32_t>(error))
                      : Result(0x80070000u | (static_cast<std::uint32_t>(error) & 0xFFFFu));
}
// System errors from errno as 0x8007xxxx, so that a failed open reads like the platform's.
Result ResultFromErrno(int error);

inline constexpr Result S_OK{0x00000000u};
inline constexpr Result S_FALSE{0x00000001u};
inline constexpr Result E_ABORT{0x80004004u};
inline constexpr Result E_FAIL{0x80004005u};
inline constexpr Result E_UNEXPECTED{0x8000FFFFu};
inline constexpr Result E_NOTIMPL{0x80004001u};
inline constexpr Result E_OUTOFMEMORY{0x8007000Eu};
inline constexpr Result E_INVALIDARG{0x80070057u};
inline constexpr Result E_ACCESSDENIED{0x80070005u};
inline constexpr Result E_SHARING_VIOLATION{0x80070020u};
inline constexpr Result E_FILE_NOT_FOUND{0x80070002u};
inline constexpr Result E_UNSUPPORTED_TYPE{0x8007065Eu};  // ERROR_UNSUPPORTED_TYPE (1630)
inline constexpr Result E_DISK_FULL{0x80070070u};         // ERROR_DISK_FULL (112)
inline constexpr Result D3DERR_OUTOFVIDEOMEMORY{0x8876017Cu};

// The exception that a decode, a metadata read or an embedded write may throw inside
// itself; the operation's edge turns it back into its Result. Never crosses a thread.
class ResultError {
public:
    explicit ResultError(Result result) : result_(result) {}
    Result GetResult() const { return result_; }

private:
    Result result_;
};

}  // namespace orvanta
