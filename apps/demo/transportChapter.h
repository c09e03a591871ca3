#pragma once

#include "apps/demo/narrator.h"
#include "apps/demo/stage.h"
#include "apps/host/pluginFolder.h"

#include <QString>

namespace vexmor::Apps::Demo
{

/// The chapter about one transport: its steps in the order in which they are told.
class CTransportChapter
{
public:
    /// An empty `logFile` stands for generated traffic. The others must outlive the chapter.
    CTransportChapter(CNarrator& narrator, const SPlugin& plugin, const QString& logFile, bool tcp);

    /// Tells and checks all steps; ends early when the interface does not open.
    void run();

private:
    Cim::CCanInterface& canInterface() { return m_stage.hosted().canInterface(); }
    bool isConnected() { return canInterface().commonInfo().connectionState() == Cim::CCommonInfo::eConnected; }

    bool open();
    void identify();
    void receive();
    void sendAndAnswer();
    void measureLoad();
    void loseLink();
    void regainLink();
    void close();
    void playTraffic();

    CNarrator& m_narrator;
    const SPlugin& m_plugin;
    const QString m_logFile;
    const bool m_tcp;
    CStage m_stage;
};

} // namespace vexmor::Apps::Demo
