// What clients of a shared bus send is read to its end, and gives messages that a bus can carry.
#include "apps/cimshare/mqttText.h"
#include "apps/cimshare/socketcandText.h"
#include "fuzz/require.h"

using namespace vexmor::Apps::Cimshare;

namespace
{
void requireCarried(const vexmor::Cim::CCanMessage& message)
{
    require(message.id().value() <= 0x7FF && message.length() <= 8);
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t count)
{
    const QByteArray stream(reinterpret_cast<const char*>(bytes), static_cast<int>(count));
    CElementReader().feed(stream, [](const QByteArray& element) {
        auto command = readCommand(element);
        if (command) {
            requireCarried(command->message);
            require(command->microseconds >= 0 && command->milliseconds >= 0);
        }
        const QByteArray told = errorElement(QString::fromUtf8(element));
        require(told.count('<') == 1 && told.count('>') == 1 && told.count('\n') == 1);
        return true;
    });
    for (const SMqttSend& send : readMqttLines(stream)) {
        requireCarried(send.message);
    }
    return 0;
}
