// Reads any datagram as a reply to a scan. Each endpoint found must be complete, must be found once, and must be the
// same when it is announced again.
#include "InterfaceT93/configParamT93.h"
#include "InterfaceT93/detectionDatagrams.h"
#include "fuzz/require.h"

using namespace vexmor::Cim;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t count)
{
    // Not a copy, which would end with a zero byte and hide a read beyond the datagram.
    const QByteArray reply = QByteArray::fromRawData(reinterpret_cast<const char*>(bytes), static_cast<int>(count));
    const std::vector<SDdtEntry> entries = usableDdtEntries(reply);
    const std::vector<SDdtEntry> again = usableDdtEntries(ddtDatagram(DDT_IDENT_REPLY, entries));
    require(entries.size() <= DDT_MAX_ENTRIES);
    require(entries.size() * DDT_ENTRY_SIZE <= count);
    require(again.size() == entries.size());
    for (std::size_t i = 0; i < entries.size(); ++i) {
        const CConfigParamT93 param = configParamOfDdtEntry(entries[i]);
        const CConfigParamT93 same = configParamOfDdtEntry(again[i]);
        require(param.ipPortString() == same.ipPortString());
        require(param.hostname() == same.hostname());
        require(param.hostname().size() <= DDT_HOST_NAME_SIZE);
        require(param.macAddressString(QLatin1Char(':')) == same.macAddressString(QLatin1Char(':')));
    }
    isDdtKind(reply, DDT_IDENT_REPLY);
    return 0;
}
