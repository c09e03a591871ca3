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

/// The text formats of can-utils, for messages with standard identifiers. All functions are pure; only the reader opens
/// files.
namespace vexmor::CanLog
{

/// The highest standard identifier.
constexpr unsigned int MAX_ID = 0x7FF;
/// The highest number of data bytes in a message.
constexpr int MAX_DATA_LENGTH = 8;

/// A kind of frame that a CCanMessage cannot represent. A frame of several kinds counts as the kind that comes last in
/// this list.
enum class EForeign { eExtended, eRemote, eError, eFd };
constexpr int FOREIGN_COUNT = 4;

/// A frame in a log: its time, interface, message and direction.
struct SLogEntry {
    std::int64_t microseconds = 0; ///< Time since the epoch, or since any other start.
    QByteArray interfaceName;
    Cim::CCanMessage message;
    char direction = 0; ///< 'R' for received, 'T' for sent, 0 for unknown.
};

/// Parses a frame like 123#1122AABB or 7FF# (cansend's syntax; dots between data bytes are allowed). For any other text
/// it returns a problem that states what is wrong, for example an identifier above 7FF or more than 8 data bytes.
Result<Cim::CCanMessage> parseFrame(const QByteArray& text);

/// Returns an identifier as three upper-case hexadecimal digits.
QByteArray formatId(std::uint16_t id);

/// Returns two upper-case hexadecimal digits per data byte, with blanks between the bytes.
QByteArray formatData(const Cim::CCanMessage& message);

/// Returns a message as 123#1122AABB: three upper-case hexadecimal digits, "#", and two digits per data byte.
QByteArray formatFrame(const Cim::CCanMessage& message);

/// Parses a line like (1398128223.803317) can0 166#D0320009, with or without a line end. Returns no entry for a line
/// that is empty, a comment (#) or a frame of a foreign kind (EForeign), and a problem for any other line.
Result<std::optional<SLogEntry>> parseLogLine(const QByteArray& line);

/// Returns the log line of an entry, in the form that `parseLogLine` reads, without a line end. A known direction
/// follows the frame, as candump writes it.
QByteArray formatLogLine(const SLogEntry& entry);

/// Returns a line as candump prints it on a terminal: interface, identifier, [length], data bytes.
QByteArray formatDump(const QByteArray& interfaceName, const Cim::CCanMessage& message);

/// Returns the error number in a message, by the rules of administration messages; 0 when it reports no error.
int errorOf(const Cim::CCanMessage& message);
/// Returns the meaning of a message by the rules of administration messages, for example "type 1, error 17, checksum
/// 0AFF"; an empty text when it has no data or byte 0 is 0.
std::string formatAdministration(const Cim::CCanMessage& message);

/// Returns the ASCII character of a data byte; a dot for a byte that is not printable.
constexpr char asciiOf(unsigned char byte)
{
    return byte >= ' ' && byte <= '~' ? static_cast<char>(byte) : '.';
}

/// Returns the data bytes as ASCII characters, with a dot for each byte that is not printable.
QByteArray formatAscii(const Cim::CCanMessage& message);

/// Reads a log from a file, entry by entry, in constant memory; standard input and pipes are read whole first.
class CLogReader
{
public:
    CLogReader();
    ~CLogReader();
    CLogReader(CLogReader&&) noexcept;
    CLogReader& operator=(CLogReader&&) noexcept;

    /// Opens a log; "-" stands for standard input. Fails when the file cannot be opened.
    Failure open(const QString& path);
    /// Returns the next entry; no entry at the end; for a malformed line a problem with the line number.
    Result<std::optional<SLogEntry>> next();
    /// Returns to the first entry. Returns false when that fails.
    bool rewind();
    /// Reads the whole log and returns to the first entry. Returns the number of entries, or the problem of the first
    /// malformed line.
    Result<std::uint64_t> countAll();
    /// Returns the number of frames skipped so far because they are of a foreign kind.
    int skipped() const { return std::accumulate(m_skipped.begin(), m_skipped.end(), 0); }
    /// Returns the number of frames of one kind that were skipped so far.
    int skipped(EForeign kind) const { return m_skipped[static_cast<std::size_t>(kind)]; }

private:
    std::unique_ptr<QIODevice> m_device;
    QString m_path;
    int m_line = 0;
    std::array<int, FOREIGN_COUNT> m_skipped{}; ///< Numbers of skipped frames by kind.
};

} // namespace vexmor::CanLog
