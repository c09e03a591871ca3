#pragma once

#include "cim/canMessage.h"

#include <QWidget>

#include <optional>

class QComboBox;
class QLabel;
class QLineEdit;
class QPushButton;
class QSpinBox;
class QTableView;

namespace vexmor::Apps::Cimview
{

class CWorkbench;

/// Sends messages on an interface that is open: one that is typed, or those of the list, single or again and again.
class CSendPanel : public QWidget
{
    Q_OBJECT

public:
    explicit CSendPanel(CWorkbench& workbench, QWidget* parent = nullptr);

private:
    void makeWidgets();
    void layOut();
    void connectWidgets();
    void showInterfaces();
    std::optional<Cim::CCanMessage> typedMessage();
    void sendTyped();
    void addTyped();
    void sendChosen();
    void removeChosen();
    void setCyclic(int key, const Cim::CCanMessage& message, int milliseconds);
    void showProblem(const QString& text);

    CWorkbench& m_workbench;
    QComboBox* m_interface;
    QLineEdit* m_id;
    QLineEdit* m_data;
    QSpinBox* m_interval;
    QPushButton* m_send;
    QPushButton* m_add;
    QPushButton* m_sendChosen;
    QPushButton* m_stop;
    QPushButton* m_remove;
    QTableView* m_table;
    QLabel* m_problem;
    QString m_cyclicInterface; ///< where the list is being sent again and again
};

} // namespace vexmor::Apps::Cimview
