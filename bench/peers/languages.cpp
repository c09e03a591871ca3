#include "bench/peers/languages.h"

#include "bench/measuring.h"

#include <algorithm>
#include <cstdio>
#include <string>

namespace vexmor::Bench
{
namespace
{
using Bytes = std::vector<std::uint8_t>;

void append(const std::string& text, Bytes& bytes)
{
    bytes.insert(bytes.end(), text.begin(), text.end());
}

std::string hex(const SMessage& message)
{
    std::string digits;
    for (const std::uint8_t byte : message.data) {
        digits += text("%02x", byte);
    }
    return digits;
}

/// Calls `onText` with each text up to and including `end`; gives the number of bytes used up.
template <typename OnText>
std::size_t parseTexts(const std::uint8_t* bytes, std::size_t count, char end, OnText&& onText)
{
    std::size_t used = 0;
    for (const std::uint8_t* stop = nullptr;
         (stop = std::find(bytes + used, bytes + count, static_cast<std::uint8_t>(end))) != bytes + count;) {
        onText(std::string(bytes + used, stop + 1));
        used = static_cast<std::size_t>(stop + 1 - bytes);
    }
    return used;
}

/// Reads an identifier and eight bytes. False for any other text.
bool scan(const std::string& text, const char* format, SMessage& message)
{
    auto& d = message.data;
    return std::sscanf(text.c_str(), format, &message.id, &d[0], &d[1], &d[2], &d[3], &d[4], &d[5], &d[6], &d[7]) == 9;
}

void appendVirtualcan(const SMessage& message, Bytes& bytes)
{
    append(text("%d##%s\n", message.id, hex(message).c_str()), bytes);
}

std::size_t parseVirtualcan(const std::uint8_t* bytes, std::size_t count, const OnMessage& onMessage, Bytes& /*reply*/)
{
    return parseTexts(bytes, count, '\n', [&](const std::string& line) {
        SMessage message;
        if (scan(line, "can0:%hu##%2hhx%2hhx%2hhx%2hhx%2hhx%2hhx%2hhx%2hhx",
                 message)) { // or the client announces itself
            onMessage(message);
        }
    });
}

void appendSocketcand(const SMessage& message, Bytes& bytes)
{
    append(text("< frame %x 0.0 %s >\n", message.id, hex(message).c_str()), bytes);
}

std::size_t parseSocketcand(const std::uint8_t* bytes, std::size_t count, const OnMessage& onMessage, Bytes& reply)
{
    return parseTexts(bytes, count, '>', [&](const std::string& text) {
        SMessage message;
        if (scan(text, " < send %hx %*x %hhx %hhx %hhx %hhx %hhx %hhx %hhx %hhx >", message)) {
            onMessage(message);
        } else { // the client opens a bus and chooses a mode
            append("< ok >", reply);
        }
    });
}
} // namespace

const SLanguage VIRTUALCAN_LANGUAGE{"", appendVirtualcan, parseVirtualcan};
const SLanguage SOCKETCAND_LANGUAGE{"< hi >", appendSocketcand, parseSocketcand};

} // namespace vexmor::Bench
