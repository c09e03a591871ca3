#pragma once

#include "cim/cimExport.h"
#include "vxCore/canId.h"

#include <atomic>

namespace vexmor::Cim
{

using CoreLib::DataTypes::CCanId;

/// View of data byte 0 as the administration byte of the protocol between host application and devices.
union AdminByte {
    unsigned char value; ///< The whole byte.
    struct {
        unsigned char low : 4;         ///< Bits 0 to 3; that protocol defines their meaning.
        unsigned char messageType : 3; ///< Bits 4 to 6, a MsgType.
        unsigned char error : 1;       ///< Bit 7, set in an error reply.
    } bits;
};

/// View of data byte 0 in stream transfers, a part of the same protocol, which defines the meaning of the bits.
union StreamAdminByte {
    unsigned char value;
};

static_assert(sizeof(AdminByte) == 1 && sizeof(StreamAdminByte) == 1, "views of one data byte");

/// The message type, bits 4 to 6 of the administration byte. The protocol of the devices defines its meaning.
enum MsgType {
    eMsgType0 = 0,
    eMsgType1 = 1,
    eMsgType2 = 2,
    eMsgType3 = 3,
    eMsgType4 = 4,
    eMsgType5 = 5,
    eMsgType6 = 6,
    eMsgType7 = 7
};

/// A CAN message with a standard (11-bit) identifier, as host application and plugin exchange it.
///
/// It is a plain value of 12 bytes without locks: identifier, length (0 to 8) and eight data bytes, of which the first
/// `length` are valid. No function throws; one that returns false has changed nothing.
///
/// The constructors register the class with Qt's meta-type system under the name "CCanMessage", for queued connections.
/// In a signal or slot the parameter must therefore be written `CCanMessage`, without its namespace, because Qt
/// compares the text. To store a message in a QVariant, use `QVariant(QMetaType::type("CCanMessage"), &message)`; to
/// read it, `*static_cast<const CCanMessage*>(variant.constData())`.
class CIM_EXPORT CCanMessage
{
public:
    /// Creates a message with identifier 0, length 0 and all data bytes 0.
    CCanMessage();
    CCanMessage(const CCanMessage& other);

    /// Creates a message with a copy of `length` bytes from `data`. If `length` is above 8 or `data` is null, the
    /// message has length 0.
    CCanMessage(const CCanId& id, unsigned char length, unsigned char* data);

    /// Creates a message with the data bytes given as further arguments: `length` of them, each an `int`. A length
    /// above 8 counts as 8. A literal 0 as the only data byte is taken for a null pointer and selects the constructor
    /// with a pointer, which makes a message of length 0.
    CCanMessage(const CCanId& id, unsigned char length, ...);

    /// Rejects any other pointer to data (const, or to char) at compile time: the variadic constructor would take the
    /// pointer for the first data byte.
    template <typename T>
    CCanMessage(const CCanId& id, unsigned char length, const T* data) = delete;

    CCanMessage& operator=(const CCanMessage& other);

    /// Compares identifier, length and the first `length` data bytes.
    bool operator==(const CCanMessage& other) const;

    const CCanId& id() const;
    void setId(const CCanId& id);

    /// Returns the number of valid data bytes, 0 to 8.
    unsigned int length() const;
    /// Sets the length and keeps all eight data bytes. Returns false, with a qDebug line, when it is above 8.
    bool setLength(unsigned int length);

    /// Returns a pointer to all eight data bytes, whatever the length; it is valid as long as the message exists.
    const unsigned char* data() const;
    /// Copies data byte `index` (0 to 7, whatever the length) to `value`. Returns false, with a qDebug line, when
    /// `index` is above 7.
    bool dataAt(unsigned int index, unsigned char& value) const;
    /// Sets data byte `index` (0 to 7, whatever the length) and keeps the length. Returns false when `index` is
    /// above 7.
    bool setDataAt(unsigned int index, unsigned char value);
    /// Copies `count` bytes to the data bytes from `offset` on and sets the length to `offset + count`. Returns false
    /// when that exceeds 8 or `bytes` is null. `bytes` may point into this message.
    bool setData(unsigned int offset, unsigned int count, unsigned char* bytes);

    /// Returns data byte 0, whatever the length.
    AdminByte administrationByte() const;
    /// Returns data byte 0, whatever the length.
    StreamAdminByte streamAdministrationByte() const;
    /// Sets data byte 0 and keeps the length.
    void setAdministrationByte(AdminByte byte);
    /// Sets data byte 0 and keeps the length.
    void setAdministrationByte(StreamAdminByte byte);
    /// Returns bits 4 to 6 of data byte 0, whatever the length.
    MsgType messageType() const;

    /// Returns the signed 16-bit error number in data bytes 1 and 2 (high byte first) of an error reply, which has bit
    /// 7 of byte 0 set and at least 3 bytes; 0 for any other message.
    short errorNumber();
    /// Returns the signed 16-bit device checksum in data bytes 3 and 4 (high byte first) of a message with
    /// administration byte 0x90 and at least 5 bytes; 0 for any other message.
    short deviceCheckSum();

private:
    static void registerMetaType();

    CCanId m_id;
    unsigned char m_length;
    unsigned char m_data[8];

    static std::atomic<int> m_metaId; ///< Qt meta-type id; 0 until the first message is constructed.
};

static_assert(sizeof(CCanMessage) == 12, "host and plugin share messages byte for byte");

} // namespace vexmor::Cim
