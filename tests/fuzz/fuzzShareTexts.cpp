// Reads any bytes as texts of clients of a shared bus. The parsers must reach the end, and give only messages that a
// bus can carry.
#include "apps/cimshare/mqttText.h"
#include "apps/cimshare/socketcandText.h"
#include "fuzz/require.h"

using namespace vexmor::Apps::Cimshare;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t count)
{
    const QByteArray payload(reinterpret_cast<const char*>(bytes), static_cast<int>(count));
    QByteArray stream = payload;
    takeElements(stream, [](const QByteArray& element) {
        auto command = readCommand(element);
        if (command) {
            requireCarried(command->message);
            require(command->milliseconds >= 0);
        }
        const QByteArray told = errorElement(QString::fromUtf8(element));
        require(told.count('<') == 1 && told.count('>') == 1 && told.count('\n') == 1);
        return true;
    });
    readMqttLines(payload, [](const QByteArray& /*line*/, auto message) {
        if (message) {
            requireCarried(*message);
        }
    });
    return 0;
}
