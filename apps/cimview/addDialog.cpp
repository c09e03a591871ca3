#include "apps/cimview/addDialog.h"

#include "apps/cimview/interfaceList.h"
#include "apps/host/bitRates.h"
#include "apps/host/gatewayAddress.h"

#include <QHostInfo>
#include <QtWidgets>

namespace vexmor::Apps::Cimview
{
namespace
{
/// The context of the dialog's texts in the translation catalogs.
struct AddDialog {
    Q_DECLARE_TR_FUNCTIONS(AddDialog)
};
} // namespace

QVector<std::pair<QString, QString>> bitRateTexts()
{
    QVector<std::pair<QString, QString>> texts{{GATEWAYS_BIT_RATE, AddDialog::tr("unchanged")}};
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
    auto* const keep = new QCheckBox(AddDialog::tr("&Store it for the next start"));
    auto* const problem = new QLabel;
    auto* const buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel);
    dialog.setWindowTitle(AddDialog::tr("Add interface"));
    address->setPlaceholderText(QStringLiteral("192.168.1.70:30000:TCP"));
    address->setToolTip(
        AddDialog::tr("ADDRESS[:PORT][:TCP|:UDP] of the gateway; a host name is replaced by its address"));
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
    const auto add = [&](const QString& place) {
        Result<Settings> settings = readAddress(place, {{StoreKey::BAUDRATE, baudrate->currentData().toString()}});
        const Failure failure =
            settings ? interfaces.add(name->text().trimmed(), *settings, keep->isChecked()) : settings.problem();
        if (failure) { // the dialog stays open and shows the reason
            problem->setText(failure->text);
            problem->show();
        } else {
            dialog.accept();
        }
    };
    QObject::connect(buttons, &QDialogButtonBox::accepted, &dialog, [&] {
        const QString typed = address->text().trimmed();
        const QString host = typed.section(QLatin1Char(':'), 0, 0);
        if (host.isEmpty() || isAddress(typed)) {
            add(typed);
            return;
        }
        QHostInfo::lookupHost(host, &dialog, [&add, typed, host](const QHostInfo& info) {
            const QHostAddress found = info.addresses().value(0);
            add(found.isNull() ? typed : found.toString() + typed.mid(host.size()));
        });
    });
    return dialog.exec() == QDialog::Accepted;
}

} // namespace vexmor::Apps::Cimview
