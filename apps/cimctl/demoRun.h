#pragma once

#include "apps/cimctl/demoNarrator.h"
#include "apps/cimctl/demoStage.h"
#include "apps/common/pluginFolder.h"

#include <QString>

namespace vexmor::Apps::Cimctl
{

/// The run over one transport: its steps in the order in which they are told.
class CDemoRun
{
public:
    /// An empty `logFile` stands for generated traffic. The others must outlive the run.
    CDemoRun(COutput& output, CDemoNarrator& narrator, const SPlugin& plugin, const QString& logFile, bool tcp);

    /// Tells and checks all steps; ends early when the interface does not open.
    void run();

private:
    Cim::CCanInterface& canInterface() { return m_stage.session().canInterface(); }
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

    COutput& m_output;
    CDemoNarrator& m_narrator;
    const SPlugin& m_plugin;
    const QString m_logFile;
    const bool m_tcp;
    CDemoStage m_stage;
};

} // namespace vexmor::Apps::Cimctl
