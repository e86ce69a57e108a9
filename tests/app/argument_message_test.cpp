#include "app/argument_message.h"

#include <gtest/gtest.h>

namespace orvanta::app {
namespace {

using Args = std::vector<std::string>;

TEST(ArgumentMessage, RoundTripsAnyArgumentsInAnyPieces) {
    const Args cases[] = {
        {},
        {""},
        {"-i", "/home/ann/My Pictures", "\"quoted\" and | bar", "Ünïcödé 日本"},
        {std::string(1 << 20, 'x'), "tail"},  // far beyond any fixed buffer
    };
    for (const Args& args : cases) {
        std::string message = EncodeArguments(args);
        ArgumentReader whole;
        EXPECT_EQ(whole.Add(message), ArgumentReader::State::Done);
        EXPECT_EQ(whole.Arguments(), args);

        // Byte by byte for the small ones, in uneven chunks for the large one.
        ArgumentReader pieces;
        std::size_t step = message.size() > 4096 ? 4093 : 1;
        for (std::size_t at = 0; at < message.size(); at += step) {
            auto state = pieces.Add(std::string_view(message).substr(at, step));
            bool last = at + step >= message.size();
            EXPECT_EQ(state, last ? ArgumentReader::State::Done : ArgumentReader::State::NeedMore)
                << at;
        }
        EXPECT_EQ(pieces.Arguments(), args);
    }
}

TEST(ArgumentMessage, RefusesMalformedAndOversizedMessages) {
    auto state = [](std::string bytes) {
        ArgumentReader reader;
        return reader.Add(bytes);
    };
    std::string oneArgument = EncodeArguments({"abc"});
    EXPECT_EQ(state(oneArgument + "x"), ArgumentReader::State::Bad);  // trailing bytes
    EXPECT_EQ(state(oneArgument.substr(0, 9)), ArgumentReader::State::NeedMore);
    // A count or a length beyond the limits is refused before anything is allocated.
    EXPECT_EQ(state(std::string("\xFF\xFF\xFF\xFF", 4)), ArgumentReader::State::Bad);
    EXPECT_EQ(state(std::string("\x01\x00\x00\x00\xFF\xFF\xFF\x7F", 8)),
              ArgumentReader::State::Bad);

    // Bytes after a complete message spoil it.
    ArgumentReader reader;
    EXPECT_EQ(reader.Add(oneArgument), ArgumentReader::State::Done);
    EXPECT_EQ(reader.Add("more"), ArgumentReader::State::Bad);
}

}  // namespace
}  // namespace orvanta::app
