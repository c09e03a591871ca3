// Reads any file as an options file of cimshare. It must give values within their limits, or a problem with a text.
#include "apps/cli/exitCodes.h"
#include "apps/cli/options.h"
#include "apps/cli/targetOptions.h"
#include "apps/host/bitRates.h"
#include "fuzz/require.h"

#include <sys/mman.h>
#include <unistd.h>

using namespace vexmor::Apps;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t count)
{
    static const int file = memfd_create("options", 0);
    require(ftruncate(file, 0) == 0 && pwrite(file, bytes, count, 0) == static_cast<ssize_t>(count));
    std::string path = "/proc/self/fd/" + std::to_string(file);

    CCommandLine app("fuzz", "");
    app.addConfigFile("--config", "", "FILE");
    STargetOptions targets;
    targets.addTo(app, STargetOptions::ENumber::eAny);
    bool allowSend = false;
    addFlag(app, "--allow-send", allowSend, "");
    QStringList networks;
    addTexts(app, "--allow", networks, "");
    QString broker;
    const COption mqtt = addText(app, "--mqtt", broker, "");
    QString topic;
    addText(app, "--mqtt-topic", topic, "").needs(mqtt);
    int seconds = 1;
    addWhole(app, "--status", seconds, 1, 86400, "");

    char name[] = "fuzz";
    char option[] = "--config";
    char* arguments[] = {name, option, path.data(), nullptr};
    const auto exitCode = app.parse(3, arguments, [](const auto& problem) {
        require(!problem.text.isEmpty());
        return eWrongUsage;
    });
    if (!exitCode) {
        require(seconds >= 1 && seconds <= 86400);
        const QString rate = targets.settings.value(StoreKey::BAUDRATE, GATEWAYS_BIT_RATE);
        require(rate == GATEWAYS_BIT_RATE || bitRates().contains(rate));
    }
    return 0;
}
