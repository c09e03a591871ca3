#pragma once

#include "apps/cimctl/messagePrinter.h"
#include "apps/cimctl/output.h"
#include "apps/cimctl/target.h"
#include "apps/common/failure.h"

#include <QString>
#include <QStringList>

/// The commands of the program. Each gives its exit code, or fails before it began.
namespace vexmor::Apps::Cimctl
{

/// Lists the plugins found.
EExitCode info(COutput& output, const SPluginPlace& place);

struct SDumpOptions {
    STargetOptions target;
    SShowOptions show;
    QStringList filters; ///< ID:MASK
    QStringList frames;  ///< sent once when the interface is open
    int count = 0;       ///< ends after so many messages are shown; 0: no limit
    double seconds = 0;  ///< ends so long after the interface is open; 0: no limit
};
/// Prints messages as they come.
EExitCode dump(COutput& output, const SDumpOptions& options);

struct SSendOptions {
    STargetOptions target;
    SShowOptions show;
    QStringList frames;
    int repeat = 1;
    double interval = 0; ///< ms from one message to the next
};
/// Sends messages. Nothing is sent when one of the frames makes no sense.
EExitCode send(COutput& output, const SSendOptions& options);

struct SReplayOptions {
    STargetOptions target;
    SShowOptions show;
    QString file;
    double speed = 1;
    bool loop = false;
};
/// Sends a log at its own timing. Nothing is sent when one of its lines makes no sense.
EExitCode replay(COutput& output, const SReplayOptions& options);

struct SScanOptions {
    SPluginPlace place;
    QStringList addresses; ///< asked directly, besides the broadcast
    bool save = false;
};
/// Finds gateways and shows their endpoints, all that answered; stores them when that is wanted, of several with one
/// name the first. What the user had set for a stored one stays.
EExitCode scan(COutput& output, const SScanOptions& options);

struct SLoadOptions {
    STargetOptions target;
    double seconds = 0;
};
/// Shows the bus load once a second.
EExitCode load(COutput& output, const SLoadOptions& options);

/// The interfaces in the settings store.
EExitCode listStored(COutput& output);
EExitCode showStored(COutput& output, const QString& name);
EExitCode removeFromStore(COutput& output, const QString& name);

struct SAddOptions {
    QString name;
    STargetOptions target; ///< an address
    bool replace = false;
};
EExitCode addToStore(COutput& output, const SAddOptions& options);

} // namespace vexmor::Apps::Cimctl
