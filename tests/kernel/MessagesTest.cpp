// How call-backs are installed, and messages, message arguments and requests as the host receives
// them.
#include "KernelFixture.h"
#include "LibraryEntity.h"
#include "ModuleEntity.h"
#include "ProbeModule.h"
#include "ScopedClock.h"

#include <climits>
#include <cstring>
#include <ctime>
#include <gmock/gmock.h>
#include <type_traits>
#include <vector>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// What one call told the host.
struct Call
{
    std::string service;
    int type = 0;
    std::string stamp;
    std::string module;
    std::string text;
    void* object = nullptr;
};

std::vector<Call> calls;

// The host's answers differ from 0: the kernel takes no notice of them.
int noteMessage(int type, char* stamp, const char* module, const char* text, void* object)
{
    calls.push_back({"message", type, stamp, module, text, object});
    return 1;
}

int noteArgument(const char* text, void* object)
{
    calls.push_back({"argument", 0, "", "", text, object});
    return 2;
}

int noteCommand(const char* text, void* object)
{
    calls.push_back({"command", 0, "", "", text, object});
    return 3;
}

int noteOtherMessage(int type, char* stamp, const char* module, const char* text, void* object)
{
    calls.push_back({"other message", type, stamp, module, text, object});
    return -1;
}

int noteOtherCommand(const char* text, void* object)
{
    calls.push_back({"other command", 0, "", "", text, object});
    return -1;
}

int takeStatistic(jobStatisticStruct*, void*)
{
    return 0;
}

int takePad(int, int, int, int, const char*, void*)
{
    return 0;
}

int takeTraces(int, void*, void*)
{
    return 0;
}

int takePlot(int, plotCommandStruct, void*)
{
    return 0;
}

class MessagesTest : public KernelFixture
{
protected:
    MessagesTest()
    {
        calls.clear();
        job().installMessageFunc(noteMessage, noteArgument, &messageObject);
        job().installExecAppliFunc(noteCommand, &commandObject);
    }

    ~MessagesTest() override
    {
        job().setActiveModule(nullptr);
        job().installMessageFunc(nullptr, nullptr, nullptr);
    }

    // The texts of all calls of one service.
    static std::vector<std::string> texts(const std::string& service)
    {
        std::vector<std::string> found;
        for (const Call& call : calls) {
            if (call.service == service)
                found.push_back(call.text);
        }
        return found;
    }

    int messageObject = 0;
    int commandObject = 0;
    int otherObject = 0;
    ModuleEntity agc{"agc"};
};

// --------------------------------------------------------------------------------- installation

TEST_F(MessagesTest, CallBackTypesAreThoseOfTheHost)
{
    EXPECT_TRUE(
        (std::is_same_v<MsgFunctionType, int (*)(int, char*, const char*, const char*, void*)>));
    EXPECT_TRUE((std::is_same_v<MsgArgumentFunctionType, int (*)(const char*, void*)>));
    EXPECT_TRUE((std::is_same_v<StatFunctionType, int (*)(jobStatisticStruct*, void*)>));
    EXPECT_TRUE(
        (std::is_same_v<CreatePadFunctionType, int (*)(int, int, int, int, const char*, void*)>));
    EXPECT_TRUE((std::is_same_v<AddTraceToPadFunctionType, int (*)(int, void*, void*)>));
    EXPECT_TRUE((std::is_same_v<AddPlotToPadFunctionType, int (*)(int, plotCommandStruct, void*)>));
    EXPECT_TRUE((std::is_same_v<ExecAppliFunctionType, int (*)(const char*, void*)>));
    EXPECT_TRUE((std::is_same_v<jobStatisticStruct, jobStatisticStr>));
    EXPECT_TRUE((std::is_same_v<modStatisticStruct, modStatisticStr>));
    EXPECT_TRUE((std::is_same_v<plotCommandStruct, plotCommandStr>));
}

TEST_F(MessagesTest, InstallersStoreTheirArgumentsAndReturnZero)
{
    int objects[6];
    EXPECT_EQ(job().installMessageFunc(noteMessage, noteArgument, &objects[0]), 0);
    EXPECT_EQ(job().installStatisticFunc(takeStatistic, &objects[1]), 0);
    EXPECT_EQ(job().installCreatePadFunc(takePad, &objects[2]), 0);
    EXPECT_EQ(job().installAddTraceToPadFuncFunc(takeTraces, &objects[3]), 0);
    EXPECT_EQ(job().installAddPlotToPadFuncFunc(takePlot, &objects[4]), 0);
    EXPECT_EQ(job().installExecAppliFunc(noteCommand, &objects[5]), 0);

    EXPECT_EQ(job().messageFunc, noteMessage);
    EXPECT_EQ(job().messageArgumentFunc, noteArgument);
    EXPECT_EQ(job().statisticFunc, takeStatistic);
    EXPECT_EQ(job().createPadFunc, takePad);
    EXPECT_EQ(job().addTraceToPadFunc, takeTraces);
    EXPECT_EQ(job().addPlotToPadFunc, takePlot);
    EXPECT_EQ(job().execAppliFunc, noteCommand);
    EXPECT_EQ(job().messageFuncObj, &objects[0]);
    EXPECT_EQ(job().statisticFuncObj, &objects[1]);
    EXPECT_EQ(job().createPadFuncObj, &objects[2]);
    EXPECT_EQ(job().addTraceToPadFuncObj, &objects[3]);
    EXPECT_EQ(job().addPlotToPadFuncObj, &objects[4]);
    EXPECT_EQ(job().execAppliFuncObj, &objects[5]);
}

TEST_F(MessagesTest, InstallersReplaceWithNullAsWell)
{
    int object;
    job().installStatisticFunc(takeStatistic, &object);
    job().installCreatePadFunc(takePad, &object);
    job().installAddTraceToPadFuncFunc(takeTraces, &object);
    job().installAddPlotToPadFuncFunc(takePlot, &object);

    EXPECT_EQ(job().installMessageFunc(nullptr, nullptr, nullptr), 0);
    EXPECT_EQ(job().installStatisticFunc(nullptr, nullptr), 0);
    EXPECT_EQ(job().installCreatePadFunc(nullptr, nullptr), 0);
    EXPECT_EQ(job().installAddTraceToPadFuncFunc(nullptr, nullptr), 0);
    EXPECT_EQ(job().installAddPlotToPadFuncFunc(nullptr, nullptr), 0);
    EXPECT_EQ(job().installExecAppliFunc(nullptr, nullptr), 0);

    EXPECT_EQ(job().messageFunc, nullptr);
    EXPECT_EQ(job().messageArgumentFunc, nullptr);
    EXPECT_EQ(job().statisticFunc, nullptr);
    EXPECT_EQ(job().createPadFunc, nullptr);
    EXPECT_EQ(job().addTraceToPadFunc, nullptr);
    EXPECT_EQ(job().addPlotToPadFunc, nullptr);
    EXPECT_EQ(job().execAppliFunc, nullptr);
    EXPECT_EQ(job().messageFuncObj, nullptr);
    EXPECT_EQ(job().statisticFuncObj, nullptr);
    EXPECT_EQ(job().createPadFuncObj, nullptr);
    EXPECT_EQ(job().addTraceToPadFuncObj, nullptr);
    EXPECT_EQ(job().addPlotToPadFuncObj, nullptr);
    EXPECT_EQ(job().execAppliFuncObj, nullptr);
}

TEST_F(MessagesTest, ObjectIsStoredWithoutAFunctionToo)
{
    EXPECT_EQ(job().installExecAppliFunc(nullptr, &otherObject), 0);
    EXPECT_EQ(job().execAppliFunc, nullptr);
    EXPECT_EQ(job().execAppliFuncObj, &otherObject);
}

TEST_F(MessagesTest, NewCallBackTakesThePlaceOfTheFormer)
{
    job().installMessageFunc(noteOtherMessage, nullptr, &otherObject);
    job().installExecAppliFunc(noteOtherCommand, &otherObject);
    job().sendMessage(1, "text");
    job().execAppliCmdSend("command");
    ASSERT_EQ(calls.size(), 2u);
    EXPECT_EQ(calls[0].service, "other message");
    EXPECT_EQ(calls[0].object, &otherObject);
    EXPECT_EQ(calls[1].service, "other command");
    EXPECT_EQ(calls[1].object, &otherObject);
}

// ------------------------------------------------------------------------------------- messages

TEST_F(MessagesTest, MessageReachesTheHostWithItsTypeTextAndObject)
{
    job().sendMessage(3, "no trace \"7\" 100 % %d %s\n");
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].type, 3);
    EXPECT_EQ(calls[0].text, "no trace \"7\" 100 % %d %s\n");
    EXPECT_EQ(calls[0].object, &messageObject);
}

TEST_F(MessagesTest, TypeIsPassedOnAsItIs)
{
    for (int type : {0, 1, 2, 3, 4, 5, 99, -1, INT_MAX, INT_MIN}) {
        job().sendMessage(type, "");
        EXPECT_EQ(calls.back().type, type);
    }
    EXPECT_EQ(calls.size(), 10u);
}

TEST_F(MessagesTest, EmptyTextIsDelivered)
{
    job().sendMessage(1, "");
    EXPECT_THAT(texts("message"), ElementsAre(""));
}

TEST_F(MessagesTest, LongTextIsDeliveredWhole)
{
    const std::string text(100000, 'x');
    job().sendMessage(1, text);
    EXPECT_THAT(texts("message"), ElementsAre(text));
}

TEST_F(MessagesTest, MessagesComeOneByOneAndInOrder)
{
    job().sendMessage(1, "one");
    EXPECT_THAT(texts("message"), ElementsAre("one"));
    job().sendMessage(1, "two");
    EXPECT_THAT(texts("message"), ElementsAre("one", "two"));
}

TEST_F(MessagesTest, SenderIsTheActiveModuleOrTheKernel)
{
    job().sendMessage(1, "");
    EXPECT_EQ(calls.back().module, "Kernel");
    job().setActiveModule(&agc);
    job().sendMessage(1, "");
    EXPECT_EQ(calls.back().module, "agc");
    job().setActiveModule(nullptr);
    job().sendMessage(1, "");
    EXPECT_EQ(calls.back().module, "Kernel");
}

TEST_F(MessagesTest, NamelessModuleSendsTheEmptyName)
{
    ModuleEntity nameless("");
    job().setActiveModule(&nameless);
    job().sendMessage(1, "");
    EXPECT_EQ(calls.back().module, "");
}

TEST_F(MessagesTest, MessageFromAnEntryPointIsTheModules)
{
    ProbeModule probe("probe");
    for (auto* entry : {&probe.pre, &probe.process, &probe.post})
        *entry = [&] { job().sendMessage(2, "here"); };
    probe.entity->preProcessModule();
    job().processModule(probe.entity);
    probe.entity->postProcessModule();
    ASSERT_THAT(texts("message"), ElementsAre("here", "here", "here"));
    for (const Call& call : calls)
        EXPECT_EQ(call.module, "probe");
}

TEST_F(MessagesTest, WithoutACallBackMessagesAreLost)
{
    job().installMessageFunc(nullptr, nullptr, &messageObject);
    job().sendMessage(4, "lost");
    job().addMessageArgument(UniVar(1));
    EXPECT_THAT(calls, IsEmpty());

    job().installMessageFunc(noteMessage, noteArgument, &messageObject);
    EXPECT_THAT(calls, IsEmpty()) << "nothing is queued";
}

TEST_F(MessagesTest, JobNameIsNoPartOfAMessage)
{
    job().setJobName("line 7");
    job().sendMessage(1, "text");
    EXPECT_EQ(calls.back().text, "text");
    EXPECT_EQ(calls.back().module, "Kernel");
}

// ---------------------------------------------------------------------------------- time stamps

TEST_F(MessagesTest, TimeStampHasNoLeadingZeros)
{
    const ScopedEnvironment zone("TZ", "UTC0");
    const struct
    {
        int hour;
        int minute;
        int second;
        const char* expected;
    } rows[] = {
        {7, 4, 9, "7:4:9"},       {9, 5, 3, "9:5:3"},     {0, 0, 0, "0:0:0"},
        {23, 59, 59, "23:59:59"}, {12, 0, 30, "12:0:30"}, {1, 10, 1, "1:10:1"},
    };
    for (const auto& row : rows) {
        const ScopedClock clock(1794700800 + row.hour * 3600 + row.minute * 60 + row.second,
                                999999);
        job().sendMessage(1, "");
        EXPECT_EQ(calls.back().stamp, row.expected);
    }
}

TEST_F(MessagesTest, TimeStampFollowsTheLocalTimeZone)
{
    const ScopedClock clock(1794700800 + 7 * 3600 + 4 * 60 + 9);
    const struct
    {
        const char* zone;
        const char* expected;
    } rows[] = {
        {"UTC0", "7:4:9"},
        {"EAST-5:30", "12:34:9"},
        {"WEST9", "22:4:9"},
        {"WEST0:00:10", "7:3:59"},
    };
    for (const auto& row : rows) {
        const ScopedEnvironment zone("TZ", row.zone);
        job().sendMessage(1, "");
        EXPECT_EQ(calls.back().stamp, row.expected) << row.zone;
    }
}

TEST_F(MessagesTest, TimeStampIsEmptyWhereThereIsNoLocalTime)
{
    const ScopedClock clock(INT64_MAX); // a year beyond 32 bits
    job().sendMessage(1, "text");
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].stamp, "");
    EXPECT_EQ(calls[0].text, "text");
}

TEST_F(MessagesTest, TimeStampIsTheTimeOfTheMessage)
{
    const auto stampOfNow = [] {
        const std::time_t seconds = std::time(nullptr);
        const std::tm local = *std::localtime(&seconds);
        char text[40];
        std::snprintf(text, sizeof text, "%d:%d:%d", local.tm_hour, local.tm_min, local.tm_sec);
        return std::string(text);
    };
    const std::string before = stampOfNow();
    job().sendMessage(1, "");
    EXPECT_THAT(calls.back().stamp, testing::AnyOf(before, stampOfNow()));
}

TEST_F(MessagesTest, HostMayWriteIntoTheTimeStamp)
{
    const ScopedClock clock(1794700800);
    job().installMessageFunc(
        [](int, char* stamp, const char*, const char* text, void*) {
            std::memset(stamp, 'x', std::strlen(stamp));
            calls.push_back({"message", 0, stamp, "", text, nullptr});
            return 0;
        },
        nullptr, nullptr);
    job().sendMessage(1, "one");
    job().sendMessage(1, "two");
    EXPECT_THAT(texts("message"), ElementsAre("one", "two"));
}

// ------------------------------------------------------------------------------------ arguments

TEST_F(MessagesTest, ArgumentIsDeliveredAsText)
{
    const int integers[] = {1, -2};
    const double doubles[] = {0.5};
    LibraryEntity library("HZ", "horizons");
    const struct
    {
        UniVar value;
        const char* expected;
    } rows[] = {
        {UniVar("a text"), "a text"},
        {UniVar(""), ""},
        {UniVar(-7), "-7"},
        {UniVar(INT64_C(9000000000)), "9000000000"},
        {UniVar(1.5f), "1.500000"},
        {UniVar(-0.25), "-0.250000000000"},
        {UniVar(integers, 2), "[1,-2]"},
        {UniVar(doubles, 1), "[0.500000000000]"},
        {UniVar(&library), "-/-"},
        {UniVar(), ""},
    };
    for (const auto& row : rows) {
        calls.clear();
        job().addMessageArgument(row.value);
        ASSERT_EQ(calls.size(), 1u);
        EXPECT_EQ(calls[0].service, "argument");
        EXPECT_EQ(calls[0].text, row.expected);
        EXPECT_EQ(calls[0].object, &messageObject) << "the object of the message call-back";
    }
}

TEST_F(MessagesTest, ArgumentsComeOneByOneBetweenTheMessages)
{
    job().addMessageArgument(UniVar(1));
    EXPECT_EQ(calls.size(), 1u) << "it does not wait for a message";
    job().sendMessage(1, "text");
    job().addMessageArgument(UniVar(2));
    job().addMessageArgument(UniVar(3));
    std::vector<std::string> services;
    for (const Call& call : calls)
        services.push_back(call.service);
    EXPECT_THAT(services, ElementsAre("argument", "message", "argument", "argument"));
    EXPECT_THAT(texts("argument"), ElementsAre("1", "2", "3"));
}

TEST_F(MessagesTest, MessagesWorkWithoutACallBackForArguments)
{
    EXPECT_EQ(job().installMessageFunc(noteMessage, nullptr, &messageObject), 0);
    job().addMessageArgument(UniVar(1));
    job().sendMessage(1, "text");
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].service, "message");
}

TEST_F(MessagesTest, ArgumentsWorkWithoutACallBackForMessages)
{
    job().installMessageFunc(nullptr, noteArgument, &messageObject);
    job().sendMessage(1, "text");
    job().addMessageArgument(UniVar(1));
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].service, "argument");
    EXPECT_EQ(calls[0].object, &messageObject);
}

// ------------------------------------------------------------------------------ other services

TEST_F(MessagesTest, JobNameIsCopied)
{
    char name[] = "line 7";
    job().setJobName(name);
    name[0] = 'x';
    EXPECT_EQ(job().jobName, "line 7");
    job().setJobName("");
    EXPECT_EQ(job().jobName, "");
    job().setJobName(std::string(1000, 'n').c_str());
    EXPECT_EQ(job().jobName, std::string(1000, 'n')) << "it is cut in the statistics only";
}

TEST_F(MessagesTest, CommandIsPassedOnAsItIs)
{
    job().execAppliCmdSend("view --line \"7\" %s; rm -r $HOME\n");
    job().execAppliCmdSend("");
    ASSERT_THAT(texts("command"), ElementsAre("view --line \"7\" %s; rm -r $HOME\n", ""));
    EXPECT_EQ(calls[0].object, &commandObject);
}

TEST_F(MessagesTest, WithoutACallBackCommandsAreLost)
{
    job().installExecAppliFunc(nullptr, &commandObject);
    job().execAppliCmdSend("view");
    EXPECT_THAT(calls, IsEmpty());
}

TEST_F(MessagesTest, BroadcastEventReturnsZeroAndDoesNothing)
{
    job().setActiveModule(&agc);
    for (int code : {0, 1, -1, INT_MAX, INT_MIN}) {
        EXPECT_EQ(job().broadcastEvent("end of line", code), 0);
        EXPECT_EQ(job().broadcastEvent("", code), 0);
    }
    EXPECT_THAT(calls, IsEmpty());
    EXPECT_EQ(job().getActiveModule(), &agc);
}

} // namespace
