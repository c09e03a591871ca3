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

/// The panel that sends messages on open interfaces: a typed message, or messages of the list, once or cyclically.
class CSendPanel : public QWidget
{
    Q_OBJECT

public:
    explicit CSendPanel(CWorkbench& workbench, QWidget* parent = nullptr);

    /// Selects the interface to send on, if it is open.
    void chooseInterface(const QString& name);

private:
    void makeWidgets();
    void makeLayout();
    void connectWidgets();
    void showInterfaces();
    /// Returns the name of the selected interface, or an empty name.
    QString chosenInterface() const;
    void choose();
    void markTyped();
    /// Returns the message in the fields. When it is not valid, shows the problem and returns nothing.
    std::optional<Cim::CCanMessage> typedMessage();
    void sendTyped();
    void addTyped();
    void sendSelected();
    void moveSelected();
    void removeSelected();
    void setCyclic(int key, const QString& interface, const Cim::CCanMessage& message, int milliseconds);
    void loadList();
    void saveList();
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
