#include "cim/canMessage.h"

#include <QMetaType>
#include <QtDebug>

#include <algorithm>
#include <cstdarg>
#include <cstring>

namespace vexmor::Cim
{
namespace
{
constexpr unsigned int MAX_LENGTH = 8;
constexpr unsigned char ADMIN_ERROR_BIT = 0x80;
constexpr unsigned char ADMIN_DEVICE_CHECKSUM = 0x90; // error bit, message type 1

short bigEndian(unsigned char high, unsigned char low)
{
    return static_cast<short>(static_cast<unsigned short>((high << 8) | low));
}
} // namespace

std::atomic<int> CCanMessage::m_metaId{0};

/// Registers this type with Qt. Every constructor calls this function; after the first call, it only reads a number.
inline void CCanMessage::registerMetaType()
{
    // Two threads may register at the same time, which is harmless: Qt returns the same id to both.
    if (Q_UNLIKELY(m_metaId.load(std::memory_order_relaxed) == 0)) {
        m_metaId.store(qRegisterMetaType<CCanMessage>("CCanMessage"), std::memory_order_relaxed);
    }
}

CCanMessage::CCanMessage() : m_id(0, 0, 0), m_length(0), m_data{}
{
    registerMetaType();
}

CCanMessage::CCanMessage(const CCanMessage& other) : m_id(other.m_id), m_length(other.m_length)
{
    std::memcpy(m_data, other.m_data, sizeof m_data);
    registerMetaType();
}

CCanMessage::CCanMessage(const CCanId& id, unsigned char length, unsigned char* data) : m_id(id), m_length(0), m_data{}
{
    setData(0, length, data);
    registerMetaType();
}

CCanMessage::CCanMessage(const CCanId& id, unsigned char length, ...) : m_id(id), m_length(0), m_data{}
{
    const unsigned int count = std::min<unsigned int>(length, MAX_LENGTH);
    va_list bytes;
    // Clang would warn that `length` is not an int. The contract requires this type, and both compilers handle it.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wvarargs"
    va_start(bytes, length);
#pragma GCC diagnostic pop
    for (unsigned int i = 0; i < count; ++i) {
        m_data[i] = static_cast<unsigned char>(va_arg(bytes, int));
    }
    va_end(bytes);
    m_length = static_cast<unsigned char>(count);
    registerMetaType();
}

// Each message is copied twice on its way to the host application. The assignment by default would go byte by byte.
// NOLINTNEXTLINE(bugprone-unhandled-self-assignment): memmove may copy an object to itself
CCanMessage& CCanMessage::operator=(const CCanMessage& other)
{
    m_id = other.m_id;
    m_length = other.m_length;
    std::memmove(m_data, other.m_data, sizeof m_data);
    return *this;
}

bool CCanMessage::operator==(const CCanMessage& other) const
{
    return m_id == other.m_id && m_length == other.m_length && std::memcmp(m_data, other.m_data, m_length) == 0;
}

const CCanId& CCanMessage::id() const
{
    return m_id;
}

void CCanMessage::setId(const CCanId& id)
{
    m_id = id;
}

unsigned int CCanMessage::length() const
{
    return m_length;
}

bool CCanMessage::setLength(unsigned int length)
{
    if (length > MAX_LENGTH) {
        qDebug("CCanMessage::setLength illegal param length: %d\n", length);
        return false;
    }
    m_length = static_cast<unsigned char>(length);
    return true;
}

const unsigned char* CCanMessage::data() const
{
    return m_data;
}

bool CCanMessage::dataAt(unsigned int index, unsigned char& value) const
{
    if (index >= MAX_LENGTH) {
        qDebug("CCanMessage::dataAt illegal param index: %d\n", index);
        return false;
    }
    value = m_data[index];
    return true;
}

bool CCanMessage::setDataAt(unsigned int index, unsigned char value)
{
    if (index >= MAX_LENGTH) {
        return false;
    }
    m_data[index] = value;
    return true;
}

bool CCanMessage::setData(unsigned int offset, unsigned int count, unsigned char* bytes)
{
    // Offset and count are not added, because the sum would wrap for a huge count.
    if (bytes == nullptr || offset > MAX_LENGTH || count > MAX_LENGTH - offset) {
        return false;
    }
    std::memmove(m_data + offset, bytes, count); // `bytes` may point into this message
    m_length = static_cast<unsigned char>(offset + count);
    return true;
}

AdminByte CCanMessage::administrationByte() const
{
    AdminByte byte;
    byte.value = m_data[0];
    return byte;
}

StreamAdminByte CCanMessage::streamAdministrationByte() const
{
    return StreamAdminByte{m_data[0]};
}

void CCanMessage::setAdministrationByte(AdminByte byte)
{
    m_data[0] = byte.value;
}

void CCanMessage::setAdministrationByte(StreamAdminByte byte)
{
    m_data[0] = byte.value;
}

MsgType CCanMessage::messageType() const
{
    return static_cast<MsgType>((m_data[0] >> 4) & 7);
}

short CCanMessage::errorNumber()
{
    if (m_length < 3 || (m_data[0] & ADMIN_ERROR_BIT) == 0) {
        return 0;
    }
    return bigEndian(m_data[1], m_data[2]);
}

short CCanMessage::deviceCheckSum()
{
    if (m_length < 5 || m_data[0] != ADMIN_DEVICE_CHECKSUM) {
        return 0;
    }
    return bigEndian(m_data[3], m_data[4]);
}

} // namespace vexmor::Cim
