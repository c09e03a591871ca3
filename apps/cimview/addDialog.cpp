#include "apps/cimview/addDialog.h"

#include "apps/cimview/interfaceList.h"
#include "apps/host/bitRates.h"
#include "apps/host/gatewayAddress.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDialogButtonBox>
#include <QFormLayout>
#include <QLabel>
#include <QLineEdit>

namespace vexmor::Apps::Cimview
{

void fillWithBitRates(QComboBox& box)
{
    box.addItem(CAddDialog::tr("as the gateway has it"), GATEWAYS_BIT_RATE);
    for (const QString& rate : bitRates()) {
        box.addItem(CAddDialog::tr("%1 kbit/s").arg(rate), rate);
    }
    box.setSizeAdjustPolicy(QComboBox::AdjustToMinimumContentsLengthWithIcon);
    box.setMinimumContentsLength(9);
}

CAddDialog::CAddDialog(CInterfaceList& interfaces, QWidget* parent)
    : QDialog(parent),
      m_interfaces(interfaces),
      m_name(new QLineEdit(this)),
      m_address(new QLineEdit(this)),
      m_baudrate(new QComboBox(this)),
      m_keep(new QCheckBox(tr("&Store it for the next time"), this)),
      m_problem(new QLabel(this))
{
    setWindowTitle(tr("Add interface"));
    m_address->setPlaceholderText(QStringLiteral("192.168.1.70:30000:TCP"));
    m_address->setToolTip(tr("ADDRESS[:PORT][:TCP|:UDP] of the gateway"));
    fillWithBitRates(*m_baudrate);
    m_keep->setChecked(true);
    m_problem->setWordWrap(true);
    m_problem->hide();

    auto* const form = new QFormLayout;
    form->addRow(tr("&Name:"), m_name);
    form->addRow(tr("&Address:"), m_address);
    form->addRow(tr("&Baud rate:"), m_baudrate);
    form->addRow(QString(), m_keep);
    auto* const buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, this);
    connect(buttons, &QDialogButtonBox::accepted, this, &QDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    auto* const layout = new QVBoxLayout(this);
    layout->addLayout(form);
    layout->addWidget(m_problem);
    layout->addStretch(1);
    layout->addWidget(buttons);
}

void CAddDialog::accept()
{
    Result<Settings> settings =
        readAddress(m_address->text().trimmed(), {{StoreKey::BAUDRATE, m_baudrate->currentData().toString()}});
    const Failure failure =
        settings ? m_interfaces.add(m_name->text().trimmed(), *settings, m_keep->isChecked()) : settings.problem();
    if (failure) {
        m_problem->setText(failure->text);
        m_problem->show();
    } else {
        QDialog::accept();
    }
}

} // namespace vexmor::Apps::Cimview
