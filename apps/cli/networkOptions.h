#pragma once

#include "apps/cli/options.h"
#include "canlog/problem.h"

#include <QHostAddress>
#include <QList>
#include <QPair>
#include <QStringList>

#include <string>

/// Options of programs that listen for clients.
namespace vexmor::Apps
{

/// The networks that clients may connect from.
struct SAllowedNetworks {
    /// Addresses with their prefix lengths. When the list is empty, clients may connect from anywhere.
    QList<QPair<QHostAddress, int>> networks;

    /// Adds networks, each of them ADDRESS or ADDRESS/PREFIX.
    Failure add(const QStringList& texts);
    bool allow(const QHostAddress& address) const;
};

/// An address to listen on.
struct SListenAddress {
    QHostAddress address; ///< The address; null when none was given.
    quint16 port = 0;

    bool isGiven() const { return !address.isNull(); }
    /// Reads [ADDRESS:]PORT. Without ADDRESS it is 127.0.0.1.
    Failure set(const QString& text);
};

/// Adds an option for an address to listen on.
COption addListening(CLI::App& app, const std::string& names, SListenAddress& address, const std::string& help);

} // namespace vexmor::Apps
