#pragma once

#include "cim/canMessage.h"

#include <QWidget>

#include <optional>

class QComboBox;
class QLabel;
class QLineEdit;
class QPushButton;
class QTableView;

namespace vexmor::Apps::Cimview
{

class CWorkbench;

/// Sends messages on interfaces that are open: one that is typed, or those of the list, once or cyclically.
class CSendPanel : public QWidget
{
    Q_OBJECT

public:
    explicit CSendPanel(CWorkbench& workbench, QWidget* parent = nullptr);

    /// Chooses the interface to send on, when it is open.
    void chooseInterface(const QString& name);

private:
    void makeWidgets();
    void makeLayout();
    void connectWidgets();
    void showInterfaces();
    /// The name of the interface to send on; empty: there is none.
    QString chosenInterface() const;
    void choose();
    void markTyped();
    /// The message in the fields; nothing, with the problem shown, when it is none.
    std::optional<Cim::CCanMessage> typedMessage();
    void sendTyped();
    void addTyped();
    void sendSelected();
    void moveSelected();
    void removeSelected();
    void setCyclic(int key, const QString& interface, const Cim::CCanMessage& message, int milliseconds);
    void loadList();
    void saveList();
    void send(const QString& interface, const Cim::CCanMessage& message);
    void showProblem(const QString& text);

    CWorkbench& m_workbench;
    QComboBox* m_interface;
    QPushButton* m_add;
    QPushButton* m_stop;
    QLineEdit* m_id;
    QLineEdit* m_data;
    QPushButton* m_send;
    QTableView* m_table;
    QLabel* m_problem;
};

} // namespace vexmor::Apps::Cimview
