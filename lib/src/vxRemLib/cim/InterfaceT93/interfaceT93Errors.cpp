#include "InterfaceT93/interfaceT93.h"
#include "cim/resultCodes.h"
#include "cim/textTable.h"

// The texts of the gateway's result codes and of the interface errors, and how an error reaches the host application.

namespace vexmor::Cim
{

const char* const CInterfaceT93::m_errorRcStrings[GATEWAY_RC_COUNT] = {
    QT_TRANSLATE_NOOP("vexmor::Cim::CInterfaceT93", "Create TCP socket failed."),
    QT_TRANSLATE_NOOP("vexmor::Cim::CInterfaceT93", "Create UDP socket failed."),
    QT_TRANSLATE_NOOP("vexmor::Cim::CInterfaceT93", "No IP socket for this operation."),
    QT_TRANSLATE_NOOP("vexmor::Cim::CInterfaceT93",
                      "TCP connect failed. T93 not connected or used by another program."),
    QT_TRANSLATE_NOOP("vexmor::Cim::CInterfaceT93", "UDP bind failed. Interface maybe used by another program."),
    QT_TRANSLATE_NOOP("vexmor::Cim::CInterfaceT93", "Unknown protocol (neither TCP nor UDP)."),
    QT_TRANSLATE_NOOP("vexmor::Cim::CInterfaceT93", "Allocation of CAN message queue failed."),
    QT_TRANSLATE_NOOP("vexmor::Cim::CInterfaceT93", "Transmit RM Framer failed."),
    QT_TRANSLATE_NOOP("vexmor::Cim::CInterfaceT93", "Transmit socket failed."),
    QT_TRANSLATE_NOOP("vexmor::Cim::CInterfaceT93", "Attempt to send when having no TCP connection."),
};

// clang-format off
const char* const CInterfaceT93::m_interfaceErrorStrings[INTERFACE_ERROR_COUNT] = {
    QT_TRANSLATE_NOOP("vexmor::Cim::CInterfaceT93", "\n\nTCP connection lost.\n\nPossible reasons:\n- network cable disconnected or broken\n- no powered network interface or amplifier connected\n\nPlease check connection and devices, then press OK."),
    QT_TRANSLATE_NOOP("vexmor::Cim::CInterfaceT93", "\n\nDeframer wrong checksum.\n\nPossible reasons:\n- network cable disconnected or broken\n- no powered network interface or amplifier connected\n\nPlease check connection and devices, then press OK."),
    QT_TRANSLATE_NOOP("vexmor::Cim::CInterfaceT93", "\n\nRx queue full.\n\nPossible reasons:\n- CAN bus load too heavy\n\nPlease reduce CAN bus load by closing views. Views producing heavy load are e.g. Service view and Devices view or views with a large number of controls."),
    QT_TRANSLATE_NOOP("vexmor::Cim::CInterfaceT93", "\n\nRead from socket failed.\n\nPossible reasons:\n- network cable disconnected or broken\n- no powered network interface or amplifier connected\n\nPlease check connection and devices, then press OK."),
    QT_TRANSLATE_NOOP("vexmor::Cim::CInterfaceT93", "\n\nTCP connection not established.\n\nPossible reasons:\n- network cable disconnected or broken\n- no powered network interface or amplifier connected\n\nPlease check connection and devices, then press OK."),
    QT_TRANSLATE_NOOP("vexmor::Cim::CInterfaceT93", "\n\nT93 CAN buffer overflow.\n\nPossible reasons:\n- CAN or network cable disconnected or broken\n- no powered device connected\n- another software on the CAN bus uses the same master setting\n\nPlease check connection and amplifiers, then press OK."),
    QT_TRANSLATE_NOOP("vexmor::Cim::CInterfaceT93", "\n\nT93 CAN transmit timeout.\n\nPossible reasons:\n- CAN or network cable disconnected or broken\n- no powered device connected\n- another software on the CAN bus uses the same master setting\n\nPlease check connection and amplifiers, then press OK."),
    QT_TRANSLATE_NOOP("vexmor::Cim::CInterfaceT93", "\n\nT93 CAN error counter overflow.\n\nPossible reasons:\n- CAN or network cable disconnected or broken\n- no powered device connected\n- another software on the CAN bus uses the same master setting\n\nPlease check connection and amplifiers, then press OK."),
    QT_TRANSLATE_NOOP("vexmor::Cim::CInterfaceT93", "\n\nT93 CAN bus off error.\n\nPossible reasons:\n- network cable disconnected or broken\n- no powered network interface or amplifier connected\n\nPlease check connection and devices, then press OK."),
    QT_TRANSLATE_NOOP("vexmor::Cim::CInterfaceT93", "\n\nT93 TCP syntax error.\n\nPossible reasons:\n- network cable disconnected or broken\n- no powered network interface or amplifier connected\n\nPlease check connection and devices, then press OK."),
    QT_TRANSLATE_NOOP("vexmor::Cim::CInterfaceT93", "\n\nT93 TCP format error.\n\nPossible reasons:\n- network cable disconnected or broken\n- no powered network interface or amplifier connected\n\nPlease check connection and devices, then press OK."),
    QT_TRANSLATE_NOOP("vexmor::Cim::CInterfaceT93", "\n\nT93 TCP buffer overflow.\n\nPossible reasons:\n- network cable disconnected or broken\n- no powered network interface or amplifier connected\n\nPlease check connection and devices, then press OK."),
};
// clang-format on

QString CInterfaceT93::m_errorRcStringsTr[GATEWAY_RC_COUNT];
QString CInterfaceT93::m_interfaceErrorStringsTr[INTERFACE_ERROR_COUNT];

QString CInterfaceT93::errorCodeToString(int code)
{
    if (code >= RC_GATEWAY_FIRST && code < RC_GATEWAY_FIRST + GATEWAY_RC_COUNT) {
        return textIn(m_errorRcStringsTr, code - RC_GATEWAY_FIRST);
    }
    return commonErrorCodeToString(code);
}

QString CInterfaceT93::interfaceErrorToString(int error)
{
    return textIn(m_interfaceErrorStringsTr, error);
}

void CInterfaceT93::retranslateErrorStrings()
{
    retranslateCommonErrorStrings();
    fillTexts(m_errorRcStringsTr, m_errorRcStrings, [](const char* text) { return tr(text); });
    fillTexts(m_interfaceErrorStringsTr, m_interfaceErrorStrings, [](const char* text) { return tr(text); });
}

void CInterfaceT93::onQueuedInterfaceError(int error)
{
    Q_EMIT interfaceError(error);
}

} // namespace vexmor::Cim
