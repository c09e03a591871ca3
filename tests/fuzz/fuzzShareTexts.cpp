// What clients of a shared bus send is read to its end, wherever the network cuts it, and gives messages that a bus can
// carry.
#include "apps/cimshare/mqttText.h"
#include "apps/cimshare/socketcandText.h"

#include <QList>

#include <cstdlib>

using namespace vexmor::Apps::Cimshare;

namespace
{
void require(bool holds)
{
    if (!holds) {
        std::abort();
    }
}

void requireCarried(const vexmor::Cim::CCanMessage& message)
{
    require(message.id().value() <= 0x7FF && message.length() <= 8);
}

struct SElements {
    explicit SElements(std::initializer_list<QByteArray> pieces)
    {
        CElementReader reader;
        for (const QByteArray& piece : pieces) {
            isTaken = isTaken && reader.feed(piece, [this](const QByteArray& element) {
                elements.append(element);
                return true;
            });
        }
    }
    QList<QByteArray> elements;
    bool isTaken = true;
};
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t count)
{
    const QByteArray stream(reinterpret_cast<const char*>(bytes), static_cast<int>(count));
    const SElements whole({stream});
    const int cut = count == 0 ? 0 : bytes[0] % static_cast<int>(count);
    const SElements pieces({stream.left(cut), stream.mid(cut)});
    require(!whole.isTaken || (pieces.isTaken && pieces.elements == whole.elements));
    for (const QByteArray& element : whole.elements) {
        if (auto command = readCommand(element)) {
            requireCarried(command->message);
            require(command->microseconds >= 0 && command->milliseconds >= 0);
        } else {
            const QByteArray told = errorElement(command.problem().text);
            require(told.count('<') == 1 && told.count('>') == 1);
        }
    }
    for (const SMqttSend& send : readMqttLines(stream)) {
        requireCarried(send.message);
    }
    requireCarried(readSingle(QString::number(count % 3000), stream).message);
    return 0;
}
