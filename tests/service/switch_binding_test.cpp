#include "service/switch_binding.h"

#include <dlfcn.h>
#include <pthread.h>

#include <array>
#include <functional>
#include <stdexcept>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "probe_library.h"
#include "quiet_host.h"
#include "support/leak_census.h"
#include "support/trace_capture.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

bool IsNull(const SwitchBinding& binding) {
    return binding.pfnAddRef == nullptr && binding.pfnRelease == nullptr &&
           binding.pfnQueryInterface == nullptr && binding.hLibrary == nullptr &&
           binding.pInterface == nullptr;
}

// --- LoadSwitch ----------------------------------------------------------------------------------

TEST(LoadSwitch, FetchesTheExportsInTheirOrderAndAsksForTheInterface) {
    ProbeLibrary library{"complete"};
    TraceCapture trace{6};
    SwitchBinding binding{};
    EXPECT_TRUE(LoadSwitch(binding));
    EXPECT_THAT(library.TakeCalls(), ElementsAre(kOpenCall, "dlsym SW_AddRef", "dlsym SW_Release",
                                                 "dlsym SW_QueryInterface"));
    EXPECT_NE(binding.pfnAddRef, nullptr);
    EXPECT_NE(binding.pfnRelease, nullptr);
    EXPECT_NE(binding.pfnQueryInterface, nullptr);
    EXPECT_NE(binding.pInterface, nullptr);
    EXPECT_EQ(binding.dwLastError, 0U);
    EXPECT_THAT(trace.Lines(), IsEmpty());
    CloseSwitch(binding);
}

TEST(LoadSwitch, PassesNullAsTheReservedArgument) {
    ProbeLibrary library{"complete"};
    SwitchBinding binding{};
    ASSERT_TRUE(LoadSwitch(binding));
    const ProbeRecord& record = ProbeLibrary::RecordOf(binding.hLibrary);
    EXPECT_EQ(record.queries, 1);
    EXPECT_EQ(record.reserved, nullptr);
    CloseSwitch(binding);
}

TEST(LoadSwitch, NeverCallsAddRefNorRelease) {
    ProbeLibrary library{"complete"};
    SwitchBinding binding{};
    ASSERT_TRUE(LoadSwitch(binding));
    const ProbeRecord& record = ProbeLibrary::RecordOf(binding.hLibrary);
    EXPECT_EQ(record.addRefs, 0);
    EXPECT_EQ(record.releases, 0);
    CloseSwitch(binding);
}

void* FailToOpen(const char* /*name*/, int flags) {
    void* const library = LibcFault::Real<&::dlopen>("/missing/libswitch.so", flags);
    errno = ELIBACC;
    return library;
}

TEST(LoadSwitch, TracesOneErrorLineAndKeepsErrnoWhenTheLibraryIsMissing) {
    FaultOf<&::dlopen> open;
    open.Answer(FailToOpen);
    TraceCapture trace{1};
    SwitchBinding binding{};
    EXPECT_FALSE(LoadSwitch(binding));
    EXPECT_EQ(trace.Lines(), (Lines{"LoadLibrary: ## ERROR:  /missing/libswitch.so: cannot open "
                                    "shared object file: No such file or directory"}));
    EXPECT_TRUE(IsNull(binding));
    EXPECT_EQ(binding.dwLastError, uint32_t{ELIBACC});
}

TEST(LoadSwitch, KeepsTheErrnoOfTheLoadNotThatOfItsTraceLine) {
    FaultOf<&::dlopen> open;
    open.Answer(FailToOpen);
    TraceCapture trace{1};
    FaultOf<&::gettimeofday> clock;  // for the line's time
    clock.Answer([](timeval* now, void* zone) {
        const int result = LibcFault::Real<&::gettimeofday>(now, zone);
        errno = ENOSPC;
        return result;
    });
    SwitchBinding binding{};
    EXPECT_FALSE(LoadSwitch(binding));
    EXPECT_EQ(binding.dwLastError, uint32_t{ELIBACC});
}

TEST(LoadSwitch, KeepsErrnoWithoutALineWhileTheTraceIsDisabled) {
    FaultOf<&::dlopen> open;
    open.Answer(FailToOpen);
    TraceCapture trace{0};
    SwitchBinding binding{};
    EXPECT_FALSE(LoadSwitch(binding));
    EXPECT_THAT(trace.Lines(), IsEmpty());
    EXPECT_EQ(binding.dwLastError, uint32_t{ELIBACC});
}

TEST(LoadSwitch, IsTrueForAFailedLoadWhenThereIsAnInterface) {
    FaultOf<&::dlopen> open;
    open.Answer(FailToOpen);
    QuietHost host;
    SwitchBinding binding{};
    binding.pInterface = &host;
    EXPECT_TRUE(LoadSwitch(binding));
    EXPECT_EQ(binding.pInterface, &host);
    EXPECT_EQ(binding.hLibrary, nullptr);
}

struct ExportCase {
    const char* variant;
    bool loaded;
    bool hasAddRef;
    bool hasRelease;
    bool hasQuery;
};

class LoadSwitchExports : public testing::TestWithParam<ExportCase> {};

TEST_P(LoadSwitchExports, NeedsNoneButTheQuery) {
    const ExportCase& expected = GetParam();
    ProbeLibrary library{expected.variant};
    TraceCapture trace{6};
    SwitchBinding binding{};
    EXPECT_EQ(LoadSwitch(binding), expected.loaded);
    EXPECT_NE(binding.hLibrary, nullptr);
    EXPECT_EQ(binding.pfnAddRef != nullptr, expected.hasAddRef);
    EXPECT_EQ(binding.pfnRelease != nullptr, expected.hasRelease);
    EXPECT_EQ(binding.pfnQueryInterface != nullptr, expected.hasQuery);
    EXPECT_EQ(binding.pInterface != nullptr, expected.loaded);
    EXPECT_THAT(trace.Lines(), IsEmpty());
    CloseSwitch(binding);
}

INSTANTIATE_TEST_SUITE_P(Missing, LoadSwitchExports,
                         testing::Values(ExportCase{"without_add_ref", true, false, true, true},
                                         ExportCase{"without_release", true, true, false, true},
                                         ExportCase{"without_query", false, true, true, false},
                                         ExportCase{"only_query", true, false, false, true}),
                         [](const auto& test) { return std::string{test.param.variant}; });

TEST(LoadSwitch, ClearsTheInterfaceWhenTheQueryReturnsFalse) {
    ProbeLibrary library{"refusing"};
    TraceCapture trace{6};
    SwitchBinding binding{};
    EXPECT_FALSE(LoadSwitch(binding));
    EXPECT_EQ(binding.pInterface, nullptr);  // the library has stored one all the same
    EXPECT_NE(binding.hLibrary, nullptr);
    EXPECT_THAT(trace.Lines(), IsEmpty());
    CloseSwitch(binding);
}

TEST(LoadSwitch, IsFalseWhenTheQueryReturnsTrueButLeavesThePointerNull) {
    ProbeLibrary library{"without_interface"};
    TraceCapture trace{6};
    SwitchBinding binding{};
    EXPECT_FALSE(LoadSwitch(binding));
    EXPECT_EQ(binding.pInterface, nullptr);
    EXPECT_THAT(trace.Lines(), IsEmpty());
    CloseSwitch(binding);
}

TEST(LoadSwitch, TakesAnyNonzeroByteOfTheQueryForSuccess) {
    ProbeLibrary library{"high_bit"};
    SwitchBinding binding{};
    EXPECT_TRUE(LoadSwitch(binding));
    EXPECT_NE(binding.pInterface, nullptr);
    CloseSwitch(binding);
}

TEST(LoadSwitch, ReusesTheHandleAndFetchesTheExportsAgainOnASecondCall) {
    ProbeLibrary library{"complete"};
    SwitchBinding binding{};
    ASSERT_TRUE(LoadSwitch(binding));
    void* const handle = binding.hLibrary;
    binding.pfnRelease = nullptr;
    library.TakeCalls();
    EXPECT_TRUE(LoadSwitch(binding));
    EXPECT_THAT(library.TakeCalls(),
                ElementsAre("dlsym SW_AddRef", "dlsym SW_Release", "dlsym SW_QueryInterface"));
    EXPECT_EQ(binding.hLibrary, handle);
    EXPECT_NE(binding.pfnRelease, nullptr);
    EXPECT_EQ(ProbeLibrary::RecordOf(handle).queries, 2);
    CloseSwitch(binding);
}

TEST(LoadSwitch, ClearsTheInterfaceOfTheFirstCallWhenTheSecondIsRefused) {
    ProbeLibrary library{"refusing_later"};
    SwitchBinding binding{};
    ASSERT_TRUE(LoadSwitch(binding));
    EXPECT_FALSE(LoadSwitch(binding));
    EXPECT_EQ(binding.pInterface, nullptr);
    CloseSwitch(binding);
}

void AnyExport() {}

TEST(LoadSwitch, ForgetsAnExportThatASecondCallDoesNotFind) {
    ProbeLibrary library{"only_query"};
    SwitchBinding binding{};
    ASSERT_TRUE(LoadSwitch(binding));
    binding.pfnAddRef = binding.pfnRelease = AnyExport;
    EXPECT_TRUE(LoadSwitch(binding));
    EXPECT_EQ(binding.pfnAddRef, nullptr);
    EXPECT_EQ(binding.pfnRelease, nullptr);
    EXPECT_NE(binding.pfnQueryInterface, nullptr);
    CloseSwitch(binding);
}

TEST(LoadSwitch, KeepsAnInterfaceThatIsSetWhereNoQueryIsExported) {
    ProbeLibrary library{"without_query"};
    QuietHost host;
    SwitchBinding binding{};
    binding.pInterface = &host;
    binding.pfnQueryInterface = [](void*, ISwitch**) -> uint8_t {
        ADD_FAILURE() << "asked by a pointer of before";
        return 0;
    };
    EXPECT_TRUE(LoadSwitch(binding));
    EXPECT_EQ(binding.pfnQueryInterface, nullptr);
    EXPECT_EQ(binding.pInterface, &host);
    CloseSwitch(binding);
}

TEST(SwitchBinding, HasItsFieldsInTheirOrder) {
    static_assert(offsetof(SwitchBinding, pfnAddRef) == 0);
    static_assert(offsetof(SwitchBinding, pfnRelease) == 8);
    static_assert(offsetof(SwitchBinding, pfnQueryInterface) == 16);
    static_assert(offsetof(SwitchBinding, hLibrary) == 24);
    static_assert(offsetof(SwitchBinding, pInterface) == 32);
    static_assert(offsetof(SwitchBinding, dwLastError) == 40);
    static_assert(sizeof(SwitchBinding::dwLastError) == 4);
    static_assert(sizeof(SwitchBinding) == 48);
}

// --- The slots -----------------------------------------------------------------------------------

/// A table of virtual operations made by hand, as a module host of another compiler has one.
struct RawHost {
    const void* const* table;
};

int g_Slot;
void* g_Object;
uintptr_t g_Words[3];

template <int Slot>
bool RecordSlot(void* object, uintptr_t first, uintptr_t second, uintptr_t third) {
    g_Slot = Slot;
    g_Object = object;
    g_Words[0] = first;
    g_Words[1] = second;
    g_Words[2] = third;
    return true;
}

template <int... Slot>
std::array<const void*, sizeof...(Slot)> MakeTable(std::integer_sequence<int, Slot...>) {
    return {reinterpret_cast<const void*>(&RecordSlot<Slot>)...};
}

/// What the table saw of the call. The object is no C++ object, which the sanitizer would object
/// to.
template <typename Call>
__attribute__((no_sanitize("vptr"))) int SlotOf(Call call) {
    static const auto table = MakeTable(std::make_integer_sequence<int, 17>{});
    RawHost raw{table.data()};
    void* const object = &raw;
    g_Slot = -1;
    call(static_cast<ISwitch*>(object));
    EXPECT_EQ(g_Object, object);
    return g_Slot;
}

#define NO_VPTR_CHECK __attribute__((no_sanitize("vptr")))

TEST(SwitchInterface, HasItsOperationsInTheSlotsThatModuleHostsAreBuiltFor) {
    SwitchLoadParams params{};
    EXPECT_EQ(SlotOf([](ISwitch* host) NO_VPTR_CHECK { host->Reserved0(); }), 0);
    EXPECT_EQ(SlotOf([](ISwitch* host) NO_VPTR_CHECK { host->Release(); }), 1);
    EXPECT_EQ(SlotOf([&](ISwitch* host) NO_VPTR_CHECK { (void)host->LoadModules(&params); }), 2);
    EXPECT_EQ(g_Words[0], reinterpret_cast<uintptr_t>(&params));
    EXPECT_EQ(SlotOf([](ISwitch* host) NO_VPTR_CHECK { (void)host->UnloadModules(9); }), 3);
    EXPECT_EQ(static_cast<uint32_t>(g_Words[0]), 9U);
    EXPECT_EQ(SlotOf([](ISwitch* host) NO_VPTR_CHECK { host->StartModules(); }), 4);
    EXPECT_EQ(SlotOf([](ISwitch* host) NO_VPTR_CHECK { host->StopModules(); }), 5);
    EXPECT_EQ(SlotOf([](ISwitch* host) NO_VPTR_CHECK { host->Reserved6(); }), 6);
    EXPECT_EQ(SlotOf([](ISwitch* host) NO_VPTR_CHECK { host->Reserved15(); }), 15);
    EXPECT_EQ(SlotOf([](ISwitch* host) NO_VPTR_CHECK { host->NotifyService(1, 2, 3); }), 16);
    EXPECT_EQ(static_cast<uint32_t>(g_Words[0]), 1U);
    EXPECT_EQ(g_Words[1], 2U);
    EXPECT_EQ(g_Words[2], 3U);
}

TEST(SwitchInterface, TakesTwoWordsOf32BitsAsTheLoadParameters) {
    static_assert(sizeof(SwitchLoadParams) == 8);
    static_assert(offsetof(SwitchLoadParams, dwForceRescan) == 0);
    static_assert(offsetof(SwitchLoadParams, dwRunMode) == 4);
}

// --- LoadModules and UnloadModules ---------------------------------------------------------------

/// A module host whose two operations do what the test says.
class ScriptedHost : public QuietHost {
  public:
    std::function<bool(SwitchLoadParams*)> onLoad;
    std::function<bool(uint32_t)> onUnload;

    bool LoadModules(SwitchLoadParams* params) override { return onLoad(params); }
    bool UnloadModules(uint32_t flags) override { return onUnload(flags); }
};

class SwitchWrappers : public testing::Test {
  protected:
    SwitchWrappers() { m_Binding.pInterface = &m_Host; }

    ScriptedHost m_Host;
    SwitchBinding m_Binding{};
    SwitchLoadParams m_Params{0, 5};
};

constexpr const char* kLoading = "SWITCH API          : Loading modules, force rescan = 1";
constexpr const char* kLoadThrew = "SWITCH DLL - Exception during LoadModules";
constexpr const char* kLoadFailed = "SWITCH API          : ## ERROR! Loading modules FAILED!";
constexpr const char* kUnloading = "SWITCH API          : Unloading modules...";
constexpr const char* kUnloadThrew = "SWITCH DLL - Exception during UnloadModules";
constexpr const char* kUnloadFailed = "SWITCH API          : ## ERROR! Unloading modules FAILED!";

TEST_F(SwitchWrappers, LoadModulesShowsARescanButHandsTheBlockOnUnchanged) {
    m_Host.onLoad = [this](SwitchLoadParams* params) {
        EXPECT_EQ(params, &m_Params);
        EXPECT_EQ(params->dwForceRescan, 0U);
        EXPECT_EQ(params->dwRunMode, 5U);
        return true;
    };
    TraceCapture trace{6};
    EXPECT_TRUE(LoadModules(m_Binding, &m_Params));
    EXPECT_EQ(trace.Lines(), (Lines{kLoading}));
    EXPECT_EQ(m_Params.dwForceRescan, 0U);
}

TEST_F(SwitchWrappers, LoadModulesShowsTheOtherBitsOfTheFirstWordToo) {
    m_Host.onLoad = [](SwitchLoadParams*) { return true; };
    m_Params.dwForceRescan = 6;
    TraceCapture trace{3};
    EXPECT_TRUE(LoadModules(m_Binding, &m_Params));
    EXPECT_EQ(trace.Lines(), (Lines{"SWITCH API          : Loading modules, force rescan = 7"}));
}

TEST_F(SwitchWrappers, LoadModulesGivesAFalseResultOnWithoutALine) {
    m_Host.onLoad = [](SwitchLoadParams*) { return false; };
    TraceCapture trace{6};
    EXPECT_FALSE(LoadModules(m_Binding, &m_Params));
    EXPECT_EQ(trace.Lines(), (Lines{kLoading}));
}

TEST_F(SwitchWrappers, LoadModulesFailsWithoutAnInterface) {
    m_Binding.pInterface = nullptr;
    TraceCapture trace{6};
    EXPECT_FALSE(LoadModules(m_Binding, &m_Params));
    EXPECT_EQ(trace.Lines(), (Lines{kLoading, kLoadFailed}));
}

TEST_F(SwitchWrappers, UnloadModulesHandsItsFlagsOnUnchanged) {
    uint32_t seen = 0;
    m_Host.onUnload = [&](uint32_t flags) {
        seen = flags;
        return true;
    };
    TraceCapture trace{6};
    EXPECT_TRUE(UnloadModules(m_Binding, 0xDEADBEEF));
    EXPECT_EQ(seen, 0xDEADBEEF);
    EXPECT_EQ(trace.Lines(), (Lines{kUnloading}));
}

TEST_F(SwitchWrappers, UnloadModulesGivesAFalseResultOnWithoutALine) {
    m_Host.onUnload = [](uint32_t) { return false; };
    TraceCapture trace{6};
    EXPECT_FALSE(UnloadModules(m_Binding, 0));
    EXPECT_EQ(trace.Lines(), (Lines{kUnloading}));
}

TEST_F(SwitchWrappers, UnloadModulesFailsWithoutAnInterface) {
    m_Binding.pInterface = nullptr;
    TraceCapture trace{6};
    EXPECT_FALSE(UnloadModules(m_Binding, 0));
    EXPECT_EQ(trace.Lines(), (Lines{kUnloading, kUnloadFailed}));
}

TEST_F(SwitchWrappers, AnnounceTheirWorkAtLevel3AndFailuresAtLevel1) {
    m_Binding.pInterface = nullptr;
    TraceCapture trace{2};
    EXPECT_FALSE(LoadModules(m_Binding, &m_Params));
    EXPECT_FALSE(UnloadModules(m_Binding, 0));
    EXPECT_EQ(trace.Lines(), (Lines{kLoadFailed, kUnloadFailed}));
}

TEST_F(SwitchWrappers, WriteNothingWhileTheTraceIsDisabled) {
    m_Host.onLoad = [](SwitchLoadParams*) -> bool { throw 1; };
    m_Host.onUnload = [](uint32_t) -> bool { throw 1; };
    TraceCapture trace{0};
    EXPECT_FALSE(LoadModules(m_Binding, &m_Params));
    EXPECT_FALSE(UnloadModules(m_Binding, 0));
    m_Binding.pInterface = nullptr;
    EXPECT_FALSE(LoadModules(m_Binding, &m_Params));
    EXPECT_FALSE(UnloadModules(m_Binding, 0));
    EXPECT_THAT(trace.Lines(), IsEmpty());
}

struct NoStandardException {
    std::string text;
};

struct ThrowCase {
    const char* name;
    void (*raise)();
};

class SwitchWrapperExceptions : public SwitchWrappers,
                                public testing::WithParamInterface<ThrowCase> {};

TEST_P(SwitchWrapperExceptions, AreSwallowedByLoadModulesWithTwoLines) {
    m_Host.onLoad = [](SwitchLoadParams*) {
        GetParam().raise();
        return true;
    };
    TraceCapture trace{1};
    EXPECT_FALSE(LoadModules(m_Binding, &m_Params));
    EXPECT_EQ(trace.Lines(), (Lines{kLoadThrew, kLoadFailed}));
}

TEST_P(SwitchWrapperExceptions, AreSwallowedByUnloadModulesWithTwoLines) {
    m_Host.onUnload = [](uint32_t) {
        GetParam().raise();
        return true;
    };
    TraceCapture trace{1};
    EXPECT_FALSE(UnloadModules(m_Binding, 0));
    EXPECT_EQ(trace.Lines(), (Lines{kUnloadThrew, kUnloadFailed}));
}

INSTANTIATE_TEST_SUITE_P(
    Of, SwitchWrapperExceptions,
    testing::Values(ThrowCase{"StandardType", [] { throw std::runtime_error{"no"}; }},
                    ThrowCase{"Int", [] { throw 42; }}, ThrowCase{"Text", [] { throw "no"; }},
                    ThrowCase{"OwnType", [] { throw NoStandardException{"no"}; }}),
    [](const auto& test) { return std::string{test.param.name}; });

/// Runs `body` in a thread; gives what the thread ended with.
void* RunInThread(std::function<void()> body) {
    pthread_t thread{};
    const auto start = [](void* argument) -> void* {
        (*static_cast<std::function<void()>*>(argument))();
        return nullptr;
    };
    EXPECT_EQ(pthread_create(&thread, nullptr, start, &body), 0);
    void* result = nullptr;
    EXPECT_EQ(pthread_join(thread, &result), 0);
    return result;
}

TEST_F(SwitchWrappers, LetTheEndOfTheThreadPass) {
    m_Host.onLoad = [](SwitchLoadParams*) -> bool { pthread_exit(&g_Slot); };
    m_Host.onUnload = [](uint32_t) -> bool { pthread_exit(&g_Object); };
    TraceCapture trace{1};
    EXPECT_EQ(RunInThread([this] { (void)LoadModules(m_Binding, &m_Params); }), &g_Slot);
    EXPECT_EQ(RunInThread([this] { (void)UnloadModules(m_Binding, 0); }), &g_Object);
    EXPECT_THAT(trace.Lines(), IsEmpty());
}

// --- CloseSwitch ---------------------------------------------------------------------------------

TEST(CloseSwitch, ReleasesTheInterfaceThatIsStillSetAndClosesTheLibrary) {
    ProbeLibrary library{"complete"};
    SwitchBinding binding{};
    ASSERT_TRUE(LoadSwitch(binding));
    binding.dwLastError = 5;
    void* const again = LibcFault::Real<&::dlopen>(library.Path().c_str(), RTLD_NOW);
    library.TakeCalls();
    CloseSwitch(binding);
    EXPECT_THAT(library.TakeCalls(), ElementsAre("dlclose"));
    EXPECT_EQ(ProbeLibrary::RecordOf(again).interfaceReleases, 1);
    EXPECT_EQ(ProbeLibrary::RecordOf(again).releases, 0);
    EXPECT_TRUE(IsNull(binding));
    EXPECT_EQ(binding.dwLastError, 5U);
    LibcFault::Real<&::dlclose>(again);
}

TEST(CloseSwitch, LeavesAClearedInterfaceAlone) {
    ProbeLibrary library{"complete"};
    SwitchBinding binding{};
    ASSERT_TRUE(LoadSwitch(binding));
    binding.pInterface = nullptr;
    void* const again = LibcFault::Real<&::dlopen>(library.Path().c_str(), RTLD_NOW);
    CloseSwitch(binding);
    EXPECT_EQ(ProbeLibrary::RecordOf(again).interfaceReleases, 0);
    EXPECT_TRUE(IsNull(binding));
    LibcFault::Real<&::dlclose>(again);
}

TEST(CloseSwitch, DoesNothingToAnEmptyBinding) {
    ProbeLibrary library{"complete"};
    SwitchBinding binding{};
    CloseSwitch(binding);
    CloseSwitchUnwinding(binding);
    EXPECT_THAT(library.TakeCalls(), IsEmpty());
    EXPECT_TRUE(IsNull(binding));
}

TEST(CloseSwitch, KeepsTheCodeInMemoryWhileAnExceptionUnwinds) {
    FakeHost machine;
    machine.Run([] {  // a process of its own, in which the library may stay
        ProbeLibrary library{"complete"};
        LeakCensus::MayStay(library.Path());
        SwitchBinding binding{};
        ASSERT_TRUE(LoadSwitch(binding));
        const ProbeRecord& record = ProbeLibrary::RecordOf(binding.hLibrary);
        void (*const release)() = binding.pfnRelease;
        library.TakeCalls();
        CloseSwitchUnwinding(binding);
        EXPECT_THAT(library.TakeCalls(), ElementsAre(kPinCall, "dlclose"));
        EXPECT_TRUE(IsNull(binding));
        EXPECT_EQ(record.interfaceReleases, 1);
        release();  // would end the test program if the library were gone
        EXPECT_EQ(record.releases, 1);
    });
}

/// A module host that cannot even be released.
class UnreleasableHost : public QuietHost {
  public:
    int releases = 0;

    void Release() override {
        ++releases;
        throw std::runtime_error{"no"};
    }
};

TEST(CloseSwitch, ClosesTheLibraryAlsoWhenTheReleaseThrowsWhileAnExceptionUnwinds) {
    FakeHost machine;
    machine.Run([] {
        ProbeLibrary library{"complete"};
        LeakCensus::MayStay(library.Path());
        UnreleasableHost host;
        SwitchBinding binding{};
        ASSERT_TRUE(LoadSwitch(binding));
        binding.pInterface = &host;
        library.TakeCalls();
        EXPECT_NO_THROW(CloseSwitchUnwinding(binding));
        EXPECT_THAT(library.TakeCalls(), ElementsAre(kPinCall, "dlclose"));
        EXPECT_EQ(host.releases, 1);
        EXPECT_TRUE(IsNull(binding));
    });
}

}  // namespace
