#include "dovrel/protocol/message_stream.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>

TEST(MessageStream, ReadsWhatItWrites) {
    std::stringstream stream;
    writeMessage(stream, "{\"a\": 1}");
    writeMessage(stream, "");
    EXPECT_EQ(stream.str(), "Content-Length: 8\r\n\r\n{\"a\": 1}Content-Length: 0\r\n\r\n");
    EXPECT_EQ(readMessage(stream), "{\"a\": 1}");
    EXPECT_EQ(readMessage(stream), "");
    EXPECT_EQ(readMessage(stream), std::nullopt);
}

TEST(MessageStream, TakesOtherHeadersAndSpellings) {
    std::istringstream stream("X: 1\r\ncontent-length:3\r\nContent-Type: a\r\n\r\nabc");
    EXPECT_EQ(readMessage(stream), "abc");
}

TEST(MessageStream, PassesOverWhatIsNoMessage) {
    std::istringstream stream("X: 1\r\n\r\nContent-Length: many\r\n\r\nContent-Length: 2\n\nok");
    EXPECT_EQ(readMessage(stream), "ok");
}

TEST(MessageStream, EndsWithAnInputThatEndsEarly) {
    std::istringstream stream("Content-Length: 10\r\n\r\nabc");
    EXPECT_EQ(readMessage(stream), std::nullopt);
    std::istringstream header("Content-Length: 10\r\n");
    EXPECT_EQ(readMessage(header), std::nullopt);
}

TEST(MessageStream, PassesOverContentThatIsTooLong) {
    std::istringstream stream("Content-Length: 99999999999999\r\n\r\nabc");
    EXPECT_EQ(readMessage(stream), std::nullopt);
}
