#pragma once

#include "canlog/logComparison.h"

#include <QDialog>
#include <QStandardItemModel>
#include <QTimer>

class QLabel;

namespace vexmor::Apps::Cimview
{

class CSourceNames;

/// A dialog that compares two logs, one piece per turn of the event loop, and shows the identifiers that differ. It
/// deletes itself when the user closes it.
class CComparisonDialog : public QDialog
{
    Q_OBJECT

public:
    /// `names` must outlive the dialog.
    CComparisonDialog(QWidget* parent, const CSourceNames& names, const QString& before, const QString& after);

private:
    void readPiece();
    void addRow(const CanLog::SLogDifference& found);

    const CSourceNames& m_names;
    CanLog::CLogComparison m_comparison;
    QStandardItemModel m_rows;
    QLabel* m_result;
    QTimer m_timer;
};

} // namespace vexmor::Apps::Cimview
