#pragma once

#include "cim/cimExport.h"
#include "vxCore/canId.h"

#include <atomic>

namespace vexmor::Cim
{

using CoreLib::DataTypes::CCanId;

/// View of data byte 0 as the administration byte of the host's protocol.
union AdminByte {
    unsigned char value; ///< the byte as a whole
    struct {
        unsigned char low : 4;         ///< bits 0 to 3, the host protocol's own
        unsigned char messageType : 3; ///< bits 4 to 6, a MsgType
        unsigned char error : 1;       ///< bit 7, set in an error reply
    } bits;
};

/// Second view of data byte 0, used for stream transfers; its bits are the host protocol's own.
union StreamAdminByte {
    unsigned char value;
};

static_assert(sizeof(AdminByte) == 1 && sizeof(StreamAdminByte) == 1, "views of one data byte");

/// The message type, bits 4 to 6 of the administration byte. The meanings belong to the host's protocol.
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

/// One CAN frame with a standard (11-bit) identifier: the value in which every frame crosses between host and plugin.
///
/// A plain value of 12 bytes without locks, copied freely: identifier, length (0 to 8) and eight data bytes, of which
/// the first `length` carry meaning. Constructing one registers the class with Qt's meta-type system as "CCanMessage",
/// so that messages can travel through queued connections: there a parameter of signal and slot must be written
/// `CCanMessage`, without its namespace, for Qt compares the text. Into a QVariant a message goes as
/// `QVariant(QMetaType::type("CCanMessage"), &message)`, and comes out as
/// `*static_cast<const CCanMessage*>(variant.constData())`. No operation throws; a refused call returns false and
/// changes nothing.
class CIM_EXPORT CCanMessage
{
public:
    /// Identifier 0, length 0, all data bytes 0.
    CCanMessage();
    CCanMessage(const CCanMessage& other);

    /// Copies `length` bytes from `data`. A length above 8, or a null `data`, gives an empty message (length 0).
    CCanMessage(const CCanId& id, unsigned char length, unsigned char* data);

    /// Takes the data bytes as further arguments, each passed as an `int`, as many as `length`; a length above 8 is cut
    /// to 8. Beware: a single literal 0 as third argument is a null pointer and selects the constructor above.
    CCanMessage(const CCanId& id, unsigned char length, ...);

    /// Any other pointer to data (const, or to char) would be taken for the first of further arguments, and the bytes
    /// for whatever lies on the stack: an error of compilation instead.
    template <typename T>
    CCanMessage(const CCanId& id, unsigned char length, const T* data) = delete;

    CCanMessage& operator=(const CCanMessage& other);

    /// Equal identifiers, lengths and first `length` data bytes.
    bool operator==(const CCanMessage& other) const;

    const CCanId& id() const;
    void setId(const CCanId& id);

    /// Number of valid data bytes, 0 to 8.
    unsigned int length() const;
    /// Refuses (and says so through qDebug) a length above 8.
    bool setLength(unsigned int length);

    /// All eight data bytes, whatever the length.
    const unsigned char* data() const;
    /// Reads data byte `index`, 0 to 7, whatever the length; refuses (and says so through qDebug) an index above 7.
    bool dataAt(unsigned int index, unsigned char& value) const;
    /// Writes data byte `index`, 0 to 7; the length stays.
    bool setDataAt(unsigned int index, unsigned char value);
    /// Copies `count` bytes to data bytes `offset` onward and sets the length to offset + count, which must not
    /// exceed 8. A null `bytes` is refused; bytes of the message itself may be given.
    bool setData(unsigned int offset, unsigned int count, unsigned char* bytes);

    /// Data byte 0, whatever the length.
    AdminByte administrationByte() const;
    StreamAdminByte streamAdministrationByte() const;
    /// Writes data byte 0; the length stays.
    void setAdministrationByte(AdminByte byte);
    void setAdministrationByte(StreamAdminByte byte);
    /// Bits 4 to 6 of data byte 0, whatever the length.
    MsgType messageType() const;

    /// The signed 16-bit error number in data bytes 1 and 2 (high byte first) of an error reply (bit 7 of byte 0 set,
    /// at least 3 bytes); 0 for any other message.
    short errorNumber();
    /// The signed 16-bit device checksum in data bytes 3 and 4 (high byte first) of a message with administration byte
    /// 0x90 and at least 5 bytes; 0 for any other message.
    short deviceCheckSum();

private:
    static void registerMetaType();

    CCanId m_id;
    unsigned char m_length;
    unsigned char m_data[8];

    static std::atomic<int> m_metaId; ///< Qt meta-type id, 0 until the first message is constructed
};

static_assert(sizeof(CCanMessage) == 12, "host and plugin share messages byte for byte");

} // namespace vexmor::Cim
