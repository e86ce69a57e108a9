#include "app/argument_message.h"

namespace orvanta::app {
namespace {

void PutU32(std::string& out, std::uint32_t value) {
    for (int i = 0; i < 4; ++i) {
        out.push_back(static_cast<char>((value >> (8 * i)) & 0xFF));
    }
}

std::uint32_t GetU32(std::string_view bytes, std::size_t at) {
    std::uint32_t value = 0;
    for (int i = 0; i < 4; ++i) {
        value |= static_cast<std::uint32_t>(static_cast<unsigned char>(bytes[at + i])) << (8 * i);
    }
    return value;
}

}  // namespace

std::string EncodeArguments(const std::vector<std::string>& arguments) {
    std::string out;
    PutU32(out, static_cast<std::uint32_t>(arguments.size()));
    for (const std::string& argument : arguments) {
        PutU32(out, static_cast<std::uint32_t>(argument.size()));
        out += argument;
    }
    return out;
}

ArgumentReader::State ArgumentReader::Add(std::string_view bytes) {
    if (state_ != State::NeedMore) {
        if (!bytes.empty()) {
            state_ = State::Bad;
        }
        return state_;
    }
    if (buffer_.size() + bytes.size() > kMaxMessageBytes) {
        state_ = State::Bad;
        return state_;
    }
    buffer_.append(bytes);
    state_ = Parse();
    return state_;
}

// Walks the whole buffer each time; messages are small and arrive in few pieces.
ArgumentReader::State ArgumentReader::Parse() {
    std::string_view bytes = buffer_;
    if (bytes.size() < 4) {
        return State::NeedMore;
    }
    std::uint32_t count = GetU32(bytes, 0);
    if (count > kMaxArguments) {
        return State::Bad;
    }
    std::vector<std::string> arguments;
    std::size_t at = 4;
    for (std::uint32_t i = 0; i < count; ++i) {
        if (bytes.size() - at < 4) {
            return State::NeedMore;
        }
        std::uint32_t length = GetU32(bytes, at);
        at += 4;
        if (length > kMaxMessageBytes) {
            return State::Bad;
        }
        if (bytes.size() - at < length) {
            return State::NeedMore;
        }
        arguments.emplace_back(bytes.substr(at, length));
        at += length;
    }
    if (at != bytes.size()) {
        return State::Bad;
    }
    arguments_ = std::move(arguments);
    buffer_.clear();
    return State::Done;
}

}  // namespace orvanta::app
