// The message a second start sends to the running instance of the same user: its argument
// list, each argument as UTF-8 with its length in front, so that no argument is cut or
// split however long it is. Layout (little-endian): u32 count, then count times (u32
// length, bytes). The reader takes bytes as they arrive and refuses a message that claims
// more than kMaxArguments arguments or kMaxMessageBytes in all, so that a stray client
// cannot make the running instance allocate without bound. Pure functions; thread-safe.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace orvanta::app {

inline constexpr std::uint32_t kMaxArguments = 1u << 16;
inline constexpr std::size_t kMaxMessageBytes = 64u << 20;

// The byte the running instance answers with once it has handled the arguments.
inline constexpr char kHandled = 'K';

std::string EncodeArguments(const std::vector<std::string>& arguments);

class ArgumentReader {
public:
    enum class State { NeedMore, Done, Bad };

    // Appends bytes that arrived; bytes beyond a complete message make it Bad.
    State Add(std::string_view bytes);
    State Current() const { return state_; }
    const std::vector<std::string>& Arguments() const { return arguments_; }

private:
    State Parse();

    std::string buffer_;
    std::vector<std::string> arguments_;
    State state_ = State::NeedMore;
};

}  // namespace orvanta::app
