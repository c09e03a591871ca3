#pragma once

#include "canlog/problem.h"
#include "cim/canMessage.h"

#include <QByteArray>
#include <QString>

#include <array>
#include <cstdint>
#include <memory>
#include <numeric>
#include <optional>
#include <string>

class QIODevice;

/// The text formats of can-utils, for messages with standard identifiers. Pure functions but for the reader.
namespace vexmor::CanLog
{

/// The greatest standard identifier.
constexpr unsigned int MAX_ID = 0x7FF;
/// The most data bytes that a message holds.
constexpr int MAX_DATA_LENGTH = 8;

/// A frame in a log that a standard CAN message cannot hold. One that is of several kinds counts as the last of them.
enum class EForeign { eExtended, eRemote, eError, eFd };
constexpr int FOREIGN_COUNT = 4;

/// One line of a log: when, on which interface, what.
struct SLogEntry {
    std::int64_t microseconds = 0; ///< since the epoch, or since any other start
    QByteArray interfaceName;
    Cim::CCanMessage message;
    char direction = 0; ///< 'R' received, 'T' sent, 0 not told
};

/// Parses a frame like 123#1122AABB or 7FF# (cansend's syntax; dots between data bytes are allowed). The problem of any
/// other text says what is wrong: identifiers above 7FF, odd digits, more than 8 bytes.
Result<Cim::CCanMessage> parseFrame(const QByteArray& text);

/// 123#1122AABB: three upper-case hexadecimal digits, "#", two for each byte.
QByteArray formatFrame(const Cim::CCanMessage& message);

/// Parses a line like (1398128223.803317) can0 166#D0320009, with or without a line end. Returns no entry for a line to
/// be skipped: empty, a comment (#), or a frame that does not fit (29-bit, remote, error, CAN FD).
Result<std::optional<SLogEntry>> parseLogLine(const QByteArray& line);

/// The same line, without a line end; the direction behind it as candump writes it, where it is told.
QByteArray formatLogLine(const SLogEntry& entry);

/// The layout in which candump prints on a terminal: interface, identifier, [length], bytes.
QByteArray formatDump(const QByteArray& interfaceName, const Cim::CCanMessage& message);

/// The number of the error that a message reports by the rules of administration messages; 0: it reports none.
int errorOf(const Cim::CCanMessage& message);
/// What the first byte says by these rules, for example "type 1, error 17, checksum 0AFF"; empty where it is 0.
std::string formatAdministration(const Cim::CCanMessage& message);

/// The character of a data byte, a dot for a byte that is none.
constexpr char asciiOf(unsigned char byte)
{
    return byte >= ' ' && byte <= '~' ? static_cast<char>(byte) : '.';
}

/// The data as such characters.
QByteArray formatAscii(const Cim::CCanMessage& message);

/// Reads a log from a file, entry by entry, in constant memory.
class CLogReader
{
public:
    CLogReader();
    ~CLogReader();
    CLogReader(CLogReader&&) noexcept;
    CLogReader& operator=(CLogReader&&) noexcept;

    /// Fails when the file cannot be read. "-" stands for the standard input; that and any pipe is read to its end at
    /// once.
    Failure open(const QString& path);
    /// Returns the next entry, no entry at the end, and at a malformed line a problem that names the line's number.
    Result<std::optional<SLogEntry>> next();
    /// Back to the first entry.
    bool rewind();
    /// Reads the whole log, goes back to the first entry, and returns the number of entries, or the problem of the
    /// first malformed line.
    Result<std::uint64_t> countAll();
    /// Lines that were skipped so far because their frames do not fit.
    int skipped() const { return std::accumulate(m_skipped.begin(), m_skipped.end(), 0); }
    /// Those of one kind.
    int skipped(EForeign kind) const { return m_skipped[static_cast<std::size_t>(kind)]; }

private:
    std::unique_ptr<QIODevice> m_device;
    QString m_path;
    int m_line = 0;
    std::array<int, FOREIGN_COUNT> m_skipped{}; ///< by kind
};

} // namespace vexmor::CanLog
