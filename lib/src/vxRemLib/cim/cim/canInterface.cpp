#include "cim/canInterface.h"

#include "cim/resultCodes.h"
#include "cim/textTable.h"

namespace vexmor::Cim
{

const char* const CCanInterface::m_errorCommonRcStrings[COMMON_RC_COUNT] = {
    QT_TRANSLATE_NOOP("QObject", "OK - no error."),
    QT_TRANSLATE_NOOP("QObject", "Interface already opened."),
    QT_TRANSLATE_NOOP("QObject", "Interface not opened."),
    QT_TRANSLATE_NOOP("QObject", "Interface not connected."),
    QT_TRANSLATE_NOOP("QObject", "Receive queue empty."),
    QT_TRANSLATE_NOOP("QObject", "CAN Baudrate not supported."),
    QT_TRANSLATE_NOOP("QObject", "No configuration change allowed on opened interface. First close it."),
    QT_TRANSLATE_NOOP("QObject", "Change of pluign name not allowed."),
    QT_TRANSLATE_NOOP("QObject", "Conversion string to enumeration failed."),
    QT_TRANSLATE_NOOP("QObject", "Conversion string to host address failed."),
    QT_TRANSLATE_NOOP("QObject", "Conversion enumeration to string failed."),
};

QString CCanInterface::m_errorCommonRcStringsTr[COMMON_RC_COUNT];

CCanInterface::CCanInterface() : m_spyHandler(nullptr) {}

CCanInterface::~CCanInterface() = default;

int CCanInterface::setSpyHandler(SpyHandler handler)
{
    m_spyHandler = handler;
    return RC_OK;
}

const CCommonInfo& CCanInterface::commonInfo()
{
    return m_commonInfo;
}

int CCanInterface::setCommonInfo(const CCommonInfo& info)
{
    if (isOpened()) {
        return RC_NO_CHANGE_WHILE_OPEN;
    }
    m_commonInfo = info;
    return RC_OK;
}

QString CCanInterface::commonErrorCodeToString(int code)
{
    return textIn(m_errorCommonRcStringsTr, code);
}

void CCanInterface::retranslateCommonErrorStrings()
{
    fillTexts(m_errorCommonRcStringsTr, m_errorCommonRcStrings, [](const char* text) { return QObject::tr(text); });
}

} // namespace vexmor::Cim
