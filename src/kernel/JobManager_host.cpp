// What the kernel tells the host: messages, requests and pads, through the installed call-backs.
#include "JobManager.h"

#include "ModuleEntity.h"
#include "SeisTraceSet.h"
#include "kernel_messages.h"
#include "private/JobRun.h"

#include <cstdio>
#include <ctime>

namespace {

enum PlotCommand
{
    plotCommand = 1,
    numberCommand = 2,
    symbolCommand = 3,
    factorCommand = 4,
    newPenCommand = 5
};

plotCommandStruct makeCommand(PlotCommand type)
{
    plotCommandStruct command{};
    command.cmdType = type;
    return command;
}

std::string timeStamp()
{
    const std::time_t now = std::time(nullptr);
    const std::tm* local = std::localtime(&now);
    if (local == nullptr)
        return std::string();
    return std::to_string(local->tm_hour) + ":" + std::to_string(local->tm_min) + ":" +
           std::to_string(local->tm_sec);
}

} // namespace

int JobManager::installMessageFunc(MsgFunctionType func, MsgArgumentFunctionType argFunc,
                                   void* funcObj)
{
    messageFunc = func;
    messageArgumentFunc = argFunc;
    messageFuncObj = funcObj;
    return 0;
}

int JobManager::installStatisticFunc(StatFunctionType func, void* funcObj)
{
    statisticFunc = func;
    statisticFuncObj = funcObj;
    return 0;
}

int JobManager::installCreatePadFunc(CreatePadFunctionType func, void* funcObj)
{
    createPadFunc = func;
    createPadFuncObj = funcObj;
    return 0;
}

int JobManager::installAddTraceToPadFuncFunc(AddTraceToPadFunctionType func, void* funcObj)
{
    addTraceToPadFunc = func;
    addTraceToPadFuncObj = funcObj;
    return 0;
}

int JobManager::installAddPlotToPadFuncFunc(AddPlotToPadFunctionType func, void* funcObj)
{
    addPlotToPadFunc = func;
    addPlotToPadFuncObj = funcObj;
    return 0;
}

int JobManager::installExecAppliFunc(ExecAppliFunctionType func, void* funcObj)
{
    execAppliFunc = func;
    execAppliFuncObj = funcObj;
    return 0;
}

void JobManager::sendMessage(int msgType, const std::string& message)
{
    const std::string sender =
        activeModule != nullptr ? activeModule->getName() : kernel_messages::kernelName;
    if (JobRun* run = JobRun::find(*this))
        run->noteMessage(msgType, sender, message);
    if (messageFunc == nullptr)
        return;
    std::string stamp = timeStamp();
    messageFunc(msgType, stamp.data(), sender.c_str(), message.c_str(), messageFuncObj);
}

void JobManager::addMessageArgument(const UniVar& arg)
{
    if (messageArgumentFunc != nullptr)
        messageArgumentFunc(arg.getStrValue().c_str(), messageFuncObj);
}

void JobManager::execAppliCmdSend(const std::string& cmd)
{
    if (execAppliFunc != nullptr)
        execAppliFunc(cmd.c_str(), execAppliFuncObj);
}

int JobManager::broadcastEvent(const std::string& /*theme*/, int /*code*/)
{
    return 0;
}

int JobManager::createPad(int type, int align, int visible, const std::string& title)
{
    if (createPadFunc == nullptr)
        return -1;
    const int ident = JobRun::newPadNumber();
    createPadFunc(ident, type, align, visible, title.c_str(), createPadFuncObj);
    return ident;
}

void JobManager::addTraceToPad(int ident, SeisTraceSet* trace)
{
    if (addTraceToPadFunc != nullptr)
        addTraceToPadFunc(ident, trace, addTraceToPadFuncObj);
}

void JobManager::addPlotToPad(int ident, float xpage, float ypage, int ipen)
{
    plotCommandStruct command = makeCommand(plotCommand);
    command.xpage = xpage;
    command.ypage = ypage;
    command.ipen = ipen;
    sendPlotCommand(ident, command);
}

void JobManager::addPlotToPad(int ident, float xpage, float ypage, float height, float fpn,
                              float angle, int ndec)
{
    plotCommandStruct command = makeCommand(numberCommand);
    command.xpage = xpage;
    command.ypage = ypage;
    command.height = height;
    command.fpn = fpn;
    command.angle = angle;
    command.ndec = ndec;
    sendPlotCommand(ident, command);
}

void JobManager::addPlotToPad(int ident, float xpage, float ypage, float height,
                              const std::string& cbcd, int inteq, float angle, int inchar)
{
    plotCommandStruct command = makeCommand(symbolCommand);
    command.xpage = xpage;
    command.ypage = ypage;
    command.height = height;
    command.angle = angle;
    command.cbcd = cbcd.c_str();
    command.inteq = inteq;
    command.inchar = inchar;
    sendPlotCommand(ident, command);
}

void JobManager::addPlotToPad(int ident, float factor)
{
    plotCommandStruct command = makeCommand(factorCommand);
    command.factor = factor;
    sendPlotCommand(ident, command);
}

void JobManager::addPlotToPad(int ident, int newpen)
{
    plotCommandStruct command = makeCommand(newPenCommand);
    command.ipen = newpen;
    sendPlotCommand(ident, command);
}

void JobManager::sendPlotCommand(int ident, const plotCommandStruct& command)
{
    if (addPlotToPadFunc != nullptr)
        addPlotToPadFunc(ident, command, addPlotToPadFuncObj);
}
