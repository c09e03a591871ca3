#include "bench/peers/languages.h"

#include <algorithm>
#include <cstdio>
#include <sstream>
#include <string>

namespace vexmor::Bench
{
namespace
{
void appendText(const std::string& text, std::vector<std::uint8_t>& bytes)
{
    bytes.insert(bytes.end(), text.begin(), text.end());
}

std::string hex(const SMessage& message)
{
    std::string text;
    for (const std::uint8_t byte : message.data) {
        char digits[3];
        std::snprintf(digits, sizeof digits, "%02x", byte);
        text += digits;
    }
    return text;
}

/// Calls `onText` with each text up to and including `end`; gives the number of bytes used up.
template <typename OnText>
std::size_t parseTexts(const std::uint8_t* bytes, std::size_t count, char end, OnText&& onText)
{
    std::size_t used = 0;
    for (;;) {
        const auto* const stop = std::find(bytes + used, bytes + count, static_cast<std::uint8_t>(end));
        if (stop == bytes + count) {
            return used;
        }
        onText(std::string(bytes + used, stop + 1));
        used = static_cast<std::size_t>(stop + 1 - bytes);
    }
}

void appendVirtualcan(const SMessage& message, std::vector<std::uint8_t>& bytes)
{
    appendText(std::to_string(message.id) + "##" + hex(message) + "\n", bytes);
}

std::size_t parseVirtualcan(const std::uint8_t* bytes, std::size_t count, const OnMessage& onMessage,
                            std::vector<std::uint8_t>& /*reply*/)
{
    return parseTexts(bytes, count, '\n', [&onMessage](const std::string& line) {
        SMessage message;
        char data[17] = "";
        if (std::sscanf(line.c_str(), "can0:%hu##%16s", &message.id, data) != 2) {
            return; // the client announces itself
        }
        for (std::size_t i = 0; i < message.data.size(); ++i) {
            std::sscanf(data + 2 * i, "%2hhx", &message.data[i]);
        }
        onMessage(message);
    });
}

void appendSocketcand(const SMessage& message, std::vector<std::uint8_t>& bytes)
{
    std::ostringstream text;
    text << "< frame " << std::hex << message.id << " 0.0 " << hex(message) << " >\n";
    appendText(text.str(), bytes);
}

std::size_t parseSocketcand(const std::uint8_t* bytes, std::size_t count, const OnMessage& onMessage,
                            std::vector<std::uint8_t>& reply)
{
    return parseTexts(bytes, count, '>', [&](const std::string& text) {
        std::istringstream words(text);
        std::string word;
        words >> word >> word;
        if (word != "send") { // the client opens a bus and chooses a mode
            appendText("< ok >", reply);
            return;
        }
        SMessage message;
        unsigned int value = 0;
        words >> std::hex >> message.id >> value;
        for (std::uint8_t& byte : message.data) {
            words >> value;
            byte = static_cast<std::uint8_t>(value);
        }
        onMessage(message);
    });
}
} // namespace

const SLanguage VIRTUALCAN_LANGUAGE{"", appendVirtualcan, parseVirtualcan};
const SLanguage SOCKETCAND_LANGUAGE{"< hi >", appendSocketcand, parseSocketcand};

} // namespace vexmor::Bench
