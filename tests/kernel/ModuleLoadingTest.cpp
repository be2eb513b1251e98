// How a module finds its library and its entry points, what it says when it does not, and when the
// library is closed again.
#include "KernelFixture.h"
#include "ModuleEntity.h"

#include <algorithm>
#include <cstring>
#include <dlfcn.h>
#include <elf.h>
#include <fstream>
#include <gmock/gmock.h>
#include <iterator>
#include <link.h>

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;

int doNothing()
{
    return 0;
}

// The installation's module tree is a directory of the test's own, with copies of the test modules,
// so that no other test has them open.
class ModuleLoadingTest : public KernelFixture
{
protected:
    ModuleLoadingTest() : ownHome("VORN_HOME", root.path().c_str())
    {
        std::filesystem::create_directory(root / "lib");
        for (const char* name :
             {"libcomplete.so", "libmissing_preprocess.so", "libmissing_process.so",
              "libmissing_postprocess.so", "libundefined_symbol.so"})
            std::filesystem::copy_file(std::string(VORN_TEST_HOME "/lib/") + name, pathOf(name));
    }

    std::string pathOf(const std::string& library) const { return root / "lib" + "/" + library; }

    bool isOpen(const std::string& library) const
    {
        void* handle = dlopen(pathOf(library).c_str(), RTLD_LAZY | RTLD_NOLOAD);
        if (handle != nullptr)
            dlclose(handle);
        return handle != nullptr;
    }

    // Why the loader does not open a file; empty when it does.
    static std::string reasonAgainst(const std::string& path)
    {
        void* handle = dlopen(path.c_str(), RTLD_LAZY);
        if (handle == nullptr)
            return dlerror();
        dlclose(handle);
        return "";
    }

    // Why the loader does not find a symbol; empty when it does.
    std::string reasonAgainstSymbol(const std::string& library, const char* symbol) const
    {
        void* handle = dlopen(pathOf(library).c_str(), RTLD_LAZY);
        EXPECT_NE(handle, nullptr) << library;
        dlerror();
        const std::string reason = dlsym(handle, symbol) == nullptr ? dlerror() : "";
        dlclose(handle);
        return reason;
    }

    // The name under which the loader opened a library.
    static std::string openedAs(void* handle)
    {
        link_map* map = nullptr;
        return dlinfo(handle, RTLD_DI_LINKMAP, &map) == 0 ? map->l_name : "";
    }

    void expectMessages(const std::vector<std::string>& texts)
    {
        EXPECT_EQ(host.texts(), texts);
        for (const HostMessage& message : host.messages) {
            EXPECT_EQ(message.type, 1);
            EXPECT_EQ(message.moduleName, "Kernel");
        }
    }

    // What a file says when it was linked to have all its symbols bound at once, unsaid.
    void unbindNow(const std::string& library) const;

    TemporaryDirectory root;
    ScopedEnvironment ownHome;
};

void ModuleLoadingTest::unbindNow(const std::string& library) const
{
    std::fstream file(pathOf(library), std::ios::in | std::ios::out | std::ios::binary);
    std::string bytes{std::istreambuf_iterator<char>(file), {}};
    const auto at = [&](std::size_t place) { return bytes.data() + place; };

    ElfW(Ehdr) header;
    std::memcpy(&header, at(0), sizeof header);
    for (std::size_t i = 0; i < header.e_phnum; ++i) {
        ElfW(Phdr) segment;
        std::memcpy(&segment, at(header.e_phoff + i * sizeof segment), sizeof segment);
        if (segment.p_type != PT_DYNAMIC)
            continue;
        ElfW(Dyn) entry;
        for (std::size_t j = segment.p_offset; j < segment.p_offset + segment.p_filesz;
             j += sizeof entry) {
            std::memcpy(&entry, at(j), sizeof entry);
            if (entry.d_tag == DT_FLAGS)
                entry.d_un.d_val &= ~static_cast<ElfW(Xword)>(DF_BIND_NOW);
            if (entry.d_tag == DT_FLAGS_1)
                entry.d_un.d_val &= ~static_cast<ElfW(Xword)>(DF_1_NOW);
            std::memcpy(at(j), &entry, sizeof entry);
        }
    }
    file.clear();
    file.seekp(0);
    file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    ASSERT_TRUE(file.flush());
}

// ---------------------------------------------------------------------------------- success

TEST_F(ModuleLoadingTest, CompleteLibraryIsOpenedAndItsEntryPointsAreBound)
{
    ModuleEntity module("agc");
    EXPECT_EQ(module.loadModuleLibrary("libcomplete.so"), 0);
    ASSERT_NE(module.moduleLibraryHandle, nullptr);
    const auto address = [&](const char* symbol) {
        return reinterpret_cast<AnyProcessFunctionType>(dlsym(module.moduleLibraryHandle, symbol));
    };
    EXPECT_EQ(module.preProcessFunction, address("preprocess_"));
    EXPECT_EQ(module.processFunction, address("process_"));
    EXPECT_EQ(module.postProcessFunction, address("postprocess_"));
    expectMessages({});
}

TEST_F(ModuleLoadingTest, LibraryIsLookedForInTheLibFolderOfTheInstallation)
{
    ModuleEntity module("agc");
    module.loadModuleLibrary("libcomplete.so");
    EXPECT_EQ(openedAs(module.moduleLibraryHandle), root.path() + "/lib/libcomplete.so");
}

TEST_F(ModuleLoadingTest, SlashAtTheEndOfTheInstallationIsDoubled)
{
    const ScopedEnvironment slash("VORN_HOME", (root.path() + "/").c_str());
    ModuleEntity module("agc");
    EXPECT_EQ(module.loadModuleLibrary("libcomplete.so"), 0);
    EXPECT_EQ(openedAs(module.moduleLibraryHandle), root.path() + "//lib/libcomplete.so");
}

TEST_F(ModuleLoadingTest, EnvironmentIsReadAtEachLoading)
{
    TemporaryDirectory elsewhere;
    ModuleEntity module("agc");
    {
        const ScopedEnvironment away("VORN_HOME", elsewhere.path().c_str());
        EXPECT_EQ(module.loadModuleLibrary("libcomplete.so"), 1);
    }
    EXPECT_EQ(module.loadModuleLibrary("libcomplete.so"), 0);
}

TEST_F(ModuleLoadingTest, FoldersBelowLibArePartOfTheName)
{
    std::filesystem::create_directory(root / "lib/filters");
    std::filesystem::rename(pathOf("libcomplete.so"), pathOf("filters/libcomplete.so"));
    ModuleEntity module("agc");
    EXPECT_EQ(module.loadModuleLibrary("filters/libcomplete.so"), 0);
    EXPECT_EQ(openedAs(module.moduleLibraryHandle), pathOf("filters/libcomplete.so"));
}

TEST_F(ModuleLoadingTest, EntryPointsOfOneModuleAreHiddenFromOthers)
{
    ModuleEntity module("agc");
    module.loadModuleLibrary("libcomplete.so");
    ASSERT_TRUE(isOpen("libcomplete.so"));
    EXPECT_EQ(dlsym(RTLD_DEFAULT, "preprocess_"), nullptr);
}

TEST_F(ModuleLoadingTest, SymbolsAreBoundWhenTheyAreUsedFirst)
{
#ifdef __SANITIZE_ADDRESS__
    GTEST_SKIP() << "an instrumented library calls through its table when it is loaded, before the "
                    "test can see that its symbols are unbound";
#endif
    unbindNow("libundefined_symbol.so");
    ModuleEntity module("later");
    ASSERT_EQ(module.loadModuleLibrary("libundefined_symbol.so"), 0);
    expectMessages({});
    EXPECT_EQ(module.preProcessFunction(), 0) << "which does not use the missing symbol";
}

// --------------------------------------------------------------------------------- failures

TEST_F(ModuleLoadingTest, WithoutTheVariableNothingIsLoaded)
{
    ModuleEntity module("agc");
    void* const handle = &module;
    module.moduleLibraryHandle = handle;
    module.preProcessFunction = doNothing;
    module.processFunction = doNothing;
    module.postProcessFunction = doNothing;
    {
        const ScopedEnvironment unset("VORN_HOME", nullptr);
        EXPECT_EQ(module.loadModuleLibrary("libcomplete.so"), 2);
    }
    expectMessages({"VORN_HOME environment variable is not set"});
    EXPECT_EQ(module.moduleLibraryHandle, handle) << "nothing else changes";
    EXPECT_EQ(module.preProcessFunction, doNothing);
    EXPECT_EQ(module.processFunction, doNothing);
    EXPECT_EQ(module.postProcessFunction, doNothing);
    EXPECT_FALSE(isOpen("libcomplete.so"));
    module.moduleLibraryHandle = nullptr;
}

TEST_F(ModuleLoadingTest, EmptyVariableCountsAsSet)
{
    const ScopedEnvironment empty("VORN_HOME", "");
    const std::string library = "libvorn-no-such-module.so";
    const std::string path = "/lib/" + library;
    ModuleEntity module("agc");
    EXPECT_EQ(module.loadModuleLibrary(library), 1);
    expectMessages({"Module library " + path + " load error " + reasonAgainst(path),
                    "Module agc can not load library " + library});
}

TEST_F(ModuleLoadingTest, LibraryThatIsNotThere)
{
    ModuleEntity module("agc");
    module.moduleLibraryHandle = &module;
    EXPECT_EQ(module.loadModuleLibrary("libnothing.so"), 1);
    EXPECT_EQ(module.moduleLibraryHandle, nullptr);
    expectMessages({"Module library " + pathOf("libnothing.so") + " load error " +
                        reasonAgainst(pathOf("libnothing.so")),
                    "Module agc can not load library libnothing.so"});
    EXPECT_THAT(host.texts()[0], testing::EndsWith("No such file or directory"));
}

TEST_F(ModuleLoadingTest, MessagesHaveThePathAsItWasPutTogether)
{
    const ScopedEnvironment slash("VORN_HOME", (root.path() + "/").c_str());
    const std::string path = root.path() + "//lib/../lib/libnothing.so";
    ModuleEntity module("a b");
    EXPECT_EQ(module.loadModuleLibrary("../lib/libnothing.so"), 1);
    expectMessages({"Module library " + path + " load error " + reasonAgainst(path),
                    "Module a b can not load library ../lib/libnothing.so"});
}

TEST_F(ModuleLoadingTest, NamelessModuleLeavesItsPlaceInTheMessageEmpty)
{
    ModuleEntity module;
    EXPECT_EQ(module.loadModuleLibrary("libnothing.so"), 1);
    ASSERT_EQ(host.messages.size(), 2u);
    EXPECT_EQ(host.messages[1].text, "Module  can not load library libnothing.so");
}

TEST_F(ModuleLoadingTest, LibrariesOfTheSystemAreNotLookedFor)
{
    ASSERT_EQ(reasonAgainst("libm.so.6"), "");
    ModuleEntity module("agc");
    EXPECT_EQ(module.loadModuleLibrary("libm.so.6"), 1);
    EXPECT_EQ(module.moduleLibraryHandle, nullptr);
}

TEST_F(ModuleLoadingTest, FileThatIsNoLibrary)
{
    std::ofstream(pathOf("libtext.so")) << "This is a text and no library, long enough or not.\n";
    ModuleEntity module("agc");
    EXPECT_EQ(module.loadModuleLibrary("libtext.so"), 1);
    expectMessages({"Module library " + pathOf("libtext.so") + " load error " +
                        reasonAgainst(pathOf("libtext.so")),
                    "Module agc can not load library libtext.so"});
}

TEST_F(ModuleLoadingTest, LibraryBoundAtOnceThatUsesAMissingFunction)
{
    ModuleEntity module("later");
    EXPECT_EQ(module.loadModuleLibrary("libundefined_symbol.so"), 1);
    expectMessages({"Module library " + pathOf("libundefined_symbol.so") + " load error " +
                        reasonAgainst(pathOf("libundefined_symbol.so")),
                    "Module later can not load library libundefined_symbol.so"});
    EXPECT_THAT(host.texts()[0], testing::HasSubstr("knl_ofALaterKernel"));
}

TEST_F(ModuleLoadingTest, FirstMissingEntryPointEndsTheBinding)
{
    const struct
    {
        const char* library;
        const char* symbol; // the one that is missing
        const char* phase;
        bool preProcess; // which ones are bound before
        bool process;
    } rows[] = {
        {"libmissing_preprocess.so", "preprocess_", "preProcess", false, false},
        {"libmissing_process.so", "process_", "process", true, false},
        {"libmissing_postprocess.so", "postprocess_", "postProcess", true, true},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.library);
        host.messages.clear();
        ModuleEntity module("agc");
        EXPECT_EQ(module.loadModuleLibrary(row.library), 2);
        EXPECT_EQ(module.preProcessFunction != nullptr, row.preProcess);
        EXPECT_EQ(module.processFunction != nullptr, row.process);
        EXPECT_EQ(module.postProcessFunction, nullptr);
        expectMessages({std::string("Module function ") + row.symbol + " load error " +
                            reasonAgainstSymbol(row.library, row.symbol),
                        std::string("Module agc can not identify function '") + row.phase + "'"});
        EXPECT_THAT(host.texts()[0], testing::EndsWith(std::string("symbol: ") + row.symbol));
    }
}

TEST_F(ModuleLoadingTest, LibraryWithAMissingEntryPointStaysOpenUntilTheModuleEnds)
{
    for (const char* library :
         {"libmissing_preprocess.so", "libmissing_process.so", "libmissing_postprocess.so"})
    {
        SCOPED_TRACE(library);
        {
            ModuleEntity module("agc");
            module.loadModuleLibrary(library);
            EXPECT_NE(module.moduleLibraryHandle, nullptr);
            EXPECT_TRUE(isOpen(library));
        }
        EXPECT_FALSE(isOpen(library));
    }
}

TEST_F(ModuleLoadingTest, MessagesNameTheModuleThatIsActive)
{
    ModuleEntity active("builder");
    job().setActiveModule(&active);
    ModuleEntity module("agc");
    module.loadModuleLibrary("libnothing.so");
    ASSERT_EQ(host.messages.size(), 2u);
    EXPECT_EQ(host.messages[0].moduleName, "builder");
    EXPECT_EQ(host.messages[1].moduleName, "builder");
}

TEST_F(ModuleLoadingTest, EarlierTroubleOfTheLoaderIsNotReported)
{
    ModuleEntity module("agc");
    ASSERT_EQ(dlsym(RTLD_DEFAULT, "vorn_no_such_symbol"), nullptr); // its text is left there
    EXPECT_EQ(module.loadModuleLibrary("libmissing_process.so"), 2);
    ASSERT_EQ(host.messages.size(), 2u);
    EXPECT_EQ(host.messages[0].text, "Module function process_ load error " +
                                         reasonAgainstSymbol("libmissing_process.so", "process_"));
}

// A host may load libraries of its own when a message arrives.
TEST_F(ModuleLoadingTest, LoaderTroubleOfTheHostDoesNotEnterTheMessages)
{
    static std::vector<std::string> texts;
    texts.clear();
    job().installMessageFunc(
        [](int, char*, const char*, const char* text, void*) {
            texts.emplace_back(text);
            return dlopen("vorn-no-such-library-of-the-host", RTLD_LAZY) != nullptr ? 1 : 0;
        },
        nullptr, nullptr);
    ModuleEntity first("first");
    ModuleEntity second("second");
    first.loadModuleLibrary("libnothing.so");
    second.loadModuleLibrary("libmissing_postprocess.so");
    installRecorder();

    EXPECT_THAT(texts,
                ElementsAre("Module library " + pathOf("libnothing.so") + " load error " +
                                reasonAgainst(pathOf("libnothing.so")),
                            "Module first can not load library libnothing.so",
                            "Module function postprocess_ load error " +
                                reasonAgainstSymbol("libmissing_postprocess.so", "postprocess_"),
                            "Module second can not identify function 'postProcess'"));
}

// ----------------------------------------------------------------------------------- closing

TEST_F(ModuleLoadingTest, LibraryIsOpenAsLongAsItsModuleLives)
{
    {
        ModuleEntity module("agc");
        module.loadModuleLibrary("libcomplete.so");
        EXPECT_TRUE(isOpen("libcomplete.so"));
    }
    EXPECT_FALSE(isOpen("libcomplete.so"));
}

TEST_F(ModuleLoadingTest, UnloadingClosesTheLibraryAndKeepsTheHandle)
{
    ModuleEntity module("agc");
    module.loadModuleLibrary("libcomplete.so");
    void* const handle = module.moduleLibraryHandle;
    EXPECT_EQ(module.unLoadModuleLibrary(), 0);
    EXPECT_FALSE(isOpen("libcomplete.so"));
    EXPECT_EQ(module.moduleLibraryHandle, handle);
    EXPECT_THAT(host.messages, IsEmpty());
}

TEST_F(ModuleLoadingTest, UnloadingWithoutALibraryDoesNothing)
{
    ModuleEntity module("agc");
    EXPECT_EQ(module.unLoadModuleLibrary(), 0);
    EXPECT_EQ(module.moduleLibraryHandle, nullptr);

    module.loadModuleLibrary("libnothing.so");
    host.messages.clear();
    EXPECT_EQ(module.unLoadModuleLibrary(), 0);
    EXPECT_EQ(module.moduleLibraryHandle, nullptr);
    EXPECT_THAT(host.messages, IsEmpty());
}

TEST_F(ModuleLoadingTest, LibraryIsClosedOnce)
{
    // Held here as well: a second closing would take this one's place.
    void* const held = dlopen(pathOf("libcomplete.so").c_str(), RTLD_LAZY);
    ASSERT_NE(held, nullptr);
    {
        ModuleEntity module("agc");
        module.loadModuleLibrary("libcomplete.so");
        module.unLoadModuleLibrary();
        module.unLoadModuleLibrary();
    }
    EXPECT_TRUE(isOpen("libcomplete.so"));
    EXPECT_EQ(dlclose(held), 0);
    EXPECT_FALSE(isOpen("libcomplete.so"));
}

TEST_F(ModuleLoadingTest, HandleThatAHostHasSetIsClosed)
{
    ModuleEntity module("agc");
    module.moduleLibraryHandle = dlopen(pathOf("libcomplete.so").c_str(), RTLD_LAZY);
    ASSERT_TRUE(isOpen("libcomplete.so"));
    EXPECT_EQ(module.unLoadModuleLibrary(), 0);
    EXPECT_FALSE(isOpen("libcomplete.so"));
}

TEST_F(ModuleLoadingTest, ModulesOfOneLibraryShareIt)
{
    auto first = std::make_unique<ModuleEntity>("first");
    ModuleEntity second("second");
    ASSERT_EQ(first->loadModuleLibrary("libcomplete.so"), 0);
    ASSERT_EQ(second.loadModuleLibrary("libcomplete.so"), 0);
    EXPECT_EQ(first->processFunction, second.processFunction);
    first.reset();
    EXPECT_TRUE(isOpen("libcomplete.so"));
    EXPECT_EQ(second.processFunction(), 0);
    second.unLoadModuleLibrary();
    EXPECT_FALSE(isOpen("libcomplete.so"));
}

TEST_F(ModuleLoadingTest, LoadingAgainLeavesNoLibraryOpen)
{
    {
        ModuleEntity module("agc");
        EXPECT_EQ(module.loadModuleLibrary("libmissing_process.so"), 2);
        EXPECT_EQ(module.loadModuleLibrary("libcomplete.so"), 0);
        ASSERT_EQ(module.loadModuleLibrary("libcomplete.so"), 0);
        EXPECT_EQ(module.processFunction(), 0);
    }
    EXPECT_FALSE(isOpen("libmissing_process.so"));
    EXPECT_FALSE(isOpen("libcomplete.so"));
}

TEST_F(ModuleLoadingTest, LibraryCanBeLoadedAgainAfterUnloading)
{
    ModuleEntity module("agc");
    module.loadModuleLibrary("libcomplete.so");
    module.unLoadModuleLibrary();
    ASSERT_EQ(module.loadModuleLibrary("libcomplete.so"), 0);
    EXPECT_TRUE(isOpen("libcomplete.so"));
    EXPECT_EQ(module.processFunction(), 0);
}

// ---------------------------------------------------------------------------- loader wrappers

TEST_F(ModuleLoadingTest, LoadLibraryOpensAndFreeLibraryCloses)
{
    void* const handle = LoadLibrary(pathOf("libcomplete.so").c_str());
    ASSERT_NE(handle, nullptr);
    EXPECT_TRUE(isOpen("libcomplete.so"));
    FreeLibrary(handle);
    EXPECT_FALSE(isOpen("libcomplete.so"));
    EXPECT_THAT(host.messages, IsEmpty());
}

TEST_F(ModuleLoadingTest, LoadLibraryTakesThePathAsItIs)
{
    EXPECT_EQ(LoadLibrary("libvorn-no-such-module.so"), nullptr);
    expectMessages({"Module library libvorn-no-such-module.so load error " +
                    reasonAgainst("libvorn-no-such-module.so")});
}

TEST_F(ModuleLoadingTest, GetProcAddressFindsAnySymbol)
{
    void* const handle = LoadLibrary(pathOf("libmissing_process.so").c_str());
    ASSERT_NE(handle, nullptr);
    EXPECT_EQ(GetProcAddress(handle, "postprocess_"), dlsym(handle, "postprocess_"));
    expectMessages({});

    EXPECT_EQ(GetProcAddress(handle, "process"), nullptr) << "no underscore is added";
    expectMessages({"Module function process load error " +
                    reasonAgainstSymbol("libmissing_process.so", "process")});
    FreeLibrary(handle);
}

// -------------------------------------------------------------------------------- in the job

TEST_F(ModuleLoadingTest, ModuleThatCanNotBeLoadedIsReleasedWithItsLibrary)
{
    ASSERT_NE(job().initJobModule("there", "libcomplete.so"), nullptr);
    for (const char* library : {"libmissing_preprocess.so", "libmissing_process.so",
                                "libmissing_postprocess.so", "libnothing.so"})
    {
        SCOPED_TRACE(library);
        EXPECT_EQ(job().initJobModule("agc", library), nullptr);
        EXPECT_EQ(job().jobModules.size(), 1u);
        EXPECT_FALSE(isOpen(library));
    }
    EXPECT_THAT(host.texts(), Contains(StartsWith("Module agc can not ")).Times(4));
}

TEST_F(ModuleLoadingTest, EndOfTheJobManagerClosesItsLibraries)
{
    job().initJobModule("one", "libcomplete.so");
    job().initJobModule("two", "libcomplete.so");
    renewSingletons();
    EXPECT_FALSE(isOpen("libcomplete.so"));
}

} // namespace
