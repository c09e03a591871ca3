#include "apps/cimview/addDialog.h"

#include "apps/cimview/interfaceList.h"
#include "apps/host/bitRates.h"
#include "apps/host/gatewayAddress.h"

#include <QCheckBox>
#include <QComboBox>
#include <QCoreApplication>
#include <QDialog>
#include <QDialogButtonBox>
#include <QFormLayout>
#include <QLabel>
#include <QLineEdit>

namespace vexmor::Apps::Cimview
{
namespace
{
/// The context of the texts in the catalogs.
struct AddDialog {
    Q_DECLARE_TR_FUNCTIONS(AddDialog)
};
} // namespace

QVector<std::pair<QString, QString>> bitRateTexts()
{
    QVector<std::pair<QString, QString>> texts{{GATEWAYS_BIT_RATE, AddDialog::tr("as the gateway has it")}};
    for (const QString& rate : bitRates()) {
        texts.append({rate, AddDialog::tr("%1 kbit/s").arg(rate)});
    }
    return texts;
}

bool runAddDialog(CInterfaceList& interfaces, QWidget* parent)
{
    QDialog dialog(parent);
    auto* const name = new QLineEdit;
    auto* const address = new QLineEdit;
    auto* const baudrate = new QComboBox;
    auto* const keep = new QCheckBox(AddDialog::tr("&Store it for the next time"));
    auto* const problem = new QLabel;
    auto* const buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel);
    dialog.setWindowTitle(AddDialog::tr("Add interface"));
    address->setPlaceholderText(QStringLiteral("192.168.1.70:30000:TCP"));
    address->setToolTip(AddDialog::tr("ADDRESS[:PORT][:TCP|:UDP] of the gateway"));
    for (const auto& [rate, text] : bitRateTexts()) {
        baudrate->addItem(text, rate);
    }
    keep->setChecked(true);
    problem->setWordWrap(true);
    problem->hide();

    auto* const layout = new QVBoxLayout(&dialog);
    auto* const form = new QFormLayout;
    form->addRow(AddDialog::tr("&Name:"), name);
    form->addRow(AddDialog::tr("&Address:"), address);
    form->addRow(AddDialog::tr("&Baud rate:"), baudrate);
    form->addRow(QString(), keep);
    layout->addLayout(form);
    layout->addWidget(problem);
    layout->addStretch(1);
    layout->addWidget(buttons);
    QObject::connect(buttons, &QDialogButtonBox::rejected, &dialog, &QDialog::reject);
    QObject::connect(buttons, &QDialogButtonBox::accepted, &dialog, [&] {
        Result<Settings> settings =
            readAddress(address->text().trimmed(), {{StoreKey::BAUDRATE, baudrate->currentData().toString()}});
        const Failure failure =
            settings ? interfaces.add(name->text().trimmed(), *settings, keep->isChecked()) : settings.problem();
        if (failure) { // the dialog stays open
            problem->setText(failure->text);
            problem->show();
        } else {
            dialog.accept();
        }
    });
    return dialog.exec() == QDialog::Accepted;
}

} // namespace vexmor::Apps::Cimview
