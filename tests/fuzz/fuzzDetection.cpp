// Reads any datagram as a reply to a scan. Each endpoint found must be complete, must be found once, and must be the
// same when it is announced again.
#include "InterfaceT93/detectionDatagrams.h"
#include "fuzz/require.h"

using namespace vexmor::Cim;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t count)
{
    // Not a copy, which would end with a zero byte and hide a read beyond the datagram.
    const QByteArray reply = QByteArray::fromRawData(reinterpret_cast<const char*>(bytes), static_cast<int>(count));
    const std::vector<SDdtEntry> entries = usableDdtEntries(reply);
    require(entries.size() <= DDT_MAX_ENTRIES && entries.size() * DDT_ENTRY_SIZE <= count);
    const QByteArray again = ddtDatagram(DDT_IDENT_REPLY, entries);
    require(ddtDatagram(DDT_IDENT_REPLY, usableDdtEntries(again)) == again);
    isDdtKind(reply, DDT_IDENT_REPLY);
    return 0;
}
