// Many handles on one tree at a time.

#include <atomic>
#include <cerrno>
#include <functional>
#include <memory>
#include <semaphore>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "registry/registry_host.h"
#include "support/libc_fault.h"

namespace {

constexpr int kThreads = 16;

/// Runs `body` on that many threads, each with its number, and waits for all.
void OnThreads(const std::function<void(int)>& body) {
    std::vector<std::thread> threads;
    for (int id = 0; id < kThreads; ++id) threads.emplace_back([&body, id] { body(id); });
    for (std::thread& thread : threads) thread.join();
}

void Enumerate(CRegistry& registry) {
    char name[64];
    char data[64];
    for (unsigned index = 0;; ++index) {
        unsigned length = sizeof name;
        if (registry.EnumKey(name, &length, index, nullptr, nullptr) != 0) break;
    }
    for (unsigned index = 0;; ++index) {
        unsigned length = sizeof name;
        unsigned size = sizeof data;
        const int result =
            registry.EnumValue(name, &length, index, kRegistryAllValues, data, &size);
        if (result != 0 && result != ERANGE) break;
    }
}

/// Another thread, which stops inside a call, and this one, which may have to wait for it.
class StoppedThread {
  public:
    /// For the call.
    void Stop() {
        m_Stopped.release();
        m_GoesOn.acquire();
    }

    /// Runs `other` on a thread of its own and, when that has stopped, `own` on this one. The other
    /// goes on once this one asks for a lock that is held, or is through. The result is whether it
    /// asked.
    bool KeepsWaiting(const std::function<void()>& other, const std::function<void()>& own) {
        std::thread thread{other};
        m_Stopped.acquire();
        const auto me = std::this_thread::get_id();
        bool waits = false;
        FaultOf<&::pthread_mutex_lock> locks;
        locks.Always([&](pthread_mutex_t* mutex) {
            if (std::this_thread::get_id() == me && !waits) {
                const int result = pthread_mutex_trylock(mutex);
                if (result != EBUSY) return result;
                waits = true;
                m_GoesOn.release();
            }
            return LibcFault::Real<&::pthread_mutex_lock>(mutex);
        });
        own();
        if (!waits) m_GoesOn.release();
        thread.join();
        return waits;
    }

  private:
    std::binary_semaphore m_Stopped{0};
    std::binary_semaphore m_GoesOn{0};
};

/// A file that is read in two steps, with all of `tree` in the first one.
std::string InTwoSteps(const std::string& tree) {
    return tree.substr(0, tree.size() - 1) + std::string(size_t{70} * 1024, '-') + "\n";
}

/// The value "Name" in the file.
std::string SavedName() {
    CRegistryNode saved;
    EXPECT_EQ(CRegistry::RestoreTree(kRegistry.c_str(), &saved), 1);
    CRegistry machine{saved.FindChild("HKEY_LOCAL_MACHINE")};
    std::string name;
    EXPECT_EQ(machine.GetValue(name, "Name", nullptr), 0);
    return name;
}

}  // namespace

TEST(RegistryThreads, SixteenHandlesCreateSetReadEnumerateAndDeleteInOneTree) {
    RegistryHost host{TreeWith("x")};
    host.Run([] {
        OnThreads([](int id) {
            const std::string own = "own" + std::to_string(id);
            CRegistry registry{"HKEY_LOCAL_MACHINE", nullptr, 0};
            CRegistry shared{registry};
            EXPECT_EQ(registry.CreateKey(nullptr, own.c_str()), 0);
            for (int i = 0; i < 100; ++i) {
                const std::string name = "value" + std::to_string(i % 7);
                EXPECT_EQ(registry.SetValue(name.c_str(), i), 0);
                unsigned value = 0;
                EXPECT_EQ(registry.GetValue(&value, name.c_str(), nullptr), 0);
                EXPECT_EQ(value, static_cast<unsigned>(i));
                Enumerate(registry);
                if (i % 3 == 0) {
                    EXPECT_EQ(registry.DeleteValue(name.c_str()), 0);
                }

                EXPECT_EQ(shared.SetValue("all", name.c_str()), 0);
                std::string text;
                EXPECT_EQ(shared.GetValue(text, "all", nullptr), 0);
                EXPECT_EQ(text.compare(0, 5, "value"), 0);
                Enumerate(shared);
            }
        });
        CRegistry registry{"HKEY_LOCAL_MACHINE", nullptr, 0};
        unsigned count = 0;
        EXPECT_EQ(registry.QuerySubkeyCount(&count), 0);
        EXPECT_EQ(count, static_cast<unsigned>(kThreads));
    });
    CRegistryNode saved;
    EXPECT_EQ(ReadText(saved, host.Read(kRegistry)), 1U);
}

TEST(RegistryThreads, KeysMayBeDeletedWhileOthersWalkAndStandOnThem) {
    RegistryHost host{TreeWith("x")};
    host.Run([] {
        OnThreads([](int id) {
            for (int i = 0; i < 100; ++i) {
                CRegistry machine{"HKEY_LOCAL_MACHINE", nullptr, 0};
                CRegistry registry;
                if ((i + id) % 4 == 0) {
                    (void)machine.DeleteKey("a");
                } else if ((i + id) % 4 == 1) {
                    EXPECT_EQ(registry.CreateKey(machine.Key(), "a\\b\\c"), 0);
                    EXPECT_EQ(registry.SetValue("v", i), 0);
                } else if ((i + id) % 4 == 2) {
                    (void)registry.Open("a/b/c", machine.Key(), 0);
                    (void)registry.GetValue("v", nullptr);
                    Enumerate(registry);
                } else {
                    (void)machine.DeleteValue("a");
                }
            }
        });
    });
}

TEST(RegistryThreads, ASaveRunsBesideChangesAndTheLastOneHasThemAll) {
    RegistryHost host{TreeWith("x")};
    host.Run([] {
        OnThreads([](int id) {
            for (int i = 0; i < 20; ++i) {
                CRegistry registry{"HKEY_LOCAL_MACHINE", nullptr, 0};
                const std::string name = std::to_string(id) + "-" + std::to_string(i);
                EXPECT_EQ(registry.SetValue(name.c_str(), i), 0);
            }  // saves
        });
    });
    CRegistryNode saved;
    EXPECT_EQ(ReadText(saved, host.Read(kRegistry)), 1U);
    CRegistryNode& machine = *saved.FindChild("HKEY_LOCAL_MACHINE");
    const RecursiveLockGuard hold{machine.Lock()};
    EXPECT_EQ(machine.Entries().size(), 1U + kThreads * 20);
}

TEST(RegistryThreads, AHandleWhoseChangeAnotherOneSavesGoesWhenThatIsInPlace) {
    RegistryHost host{TreeWith("x")};
    host.Run([] {
        auto own = std::make_unique<CRegistry>("HKEY_LOCAL_MACHINE", nullptr, 0U);
        EXPECT_EQ(own->SetValue("Name", "own"), 0);
        StoppedThread saver;
        FaultOf<&::rename> renames;
        renames.Answer([&](const char* from, const char* to) {
            saver.Stop();
            return LibcFault::Real<&::rename>(from, to);
        });
        const auto save = [] {
            CRegistry registry{"HKEY_LOCAL_MACHINE", nullptr, 0};
            EXPECT_EQ(registry.SetValue("other", 1), 0);
        };
        EXPECT_TRUE(saver.KeepsWaiting(save, [&] {
            own.reset();
            EXPECT_EQ(SavedName(), "own");
        }));
    });
}

TEST(RegistryThreads, AHandleMadeDuringASecondSetUpWaitsAndFindsItsHive) {
    RegistryHost host{InTwoSteps(TreeWith("x"))};
    host.Run([] {
        const CRegistry first;
        StoppedThread reader;
        FaultOf<&::fread> reads;
        reads.PassThrough();
        reads.Answer([&](void* to, size_t size, size_t count, FILE* from) {
            EXPECT_EQ(CRegistry::MHives[kHiveLocalMachine], nullptr) << "its key is replaced";
            reader.Stop();
            return LibcFault::Real<&::fread>(to, size, count, from);
        });
        EXPECT_TRUE(reader.KeepsWaiting([] { CRegistry::SetupTree(true); },
                                        [] {
                                            CRegistry machine{CRegistry::MHives[kHiveLocalMachine]};
                                            std::string name;
                                            EXPECT_EQ(machine.GetValue(name, "Name", nullptr), 0);
                                            EXPECT_EQ(name, "x");
                                        }));
    });
}

TEST(RegistryThreads, ASaveWaitsForASecondSetUpAndWritesAllThatItRead) {
    RegistryHost host{TreeWith("x")};
    host.Run([&host] {
        auto own = std::make_unique<CRegistry>("HKEY_LOCAL_MACHINE", nullptr, 0U);
        EXPECT_EQ(own->SetValue("Name", "own"), 0);
        host.File(kRegistry, InTwoSteps("[HKEY_USERS]\nu=d=1\n\n" + TreeWith("read")));
        StoppedThread reader;
        FaultOf<&::fread> reads;
        reads.PassThrough();
        reads.Answer([&](void* to, size_t size, size_t count, FILE* from) {
            reader.Stop();
            return LibcFault::Real<&::fread>(to, size, count, from);
        });
        EXPECT_TRUE(reader.KeepsWaiting([] { CRegistry::SetupTree(true); }, [&] { own.reset(); }));
    });
    EXPECT_EQ(host.Read(kRegistry),
              "[HKEY_LOCAL_MACHINE]\nName=s=read\n\n[HKEY_USERS]\nu=d=1\n\n\n");
}

TEST(RegistryThreads, ASecondSetUpWaitsForASaveAndReadsAllThatItWrote) {
    RegistryHost host{TreeWith("x")};
    host.Run([] {
        const CRegistry first;
        StoppedThread saver;
        FaultOf<&::rename> renames;
        renames.PassThrough();  // the file has become the backup
        renames.Answer([&](const char* from, const char* to) {
            saver.Stop();
            return LibcFault::Real<&::rename>(from, to);
        });
        const auto save = [] {
            CRegistry registry{"HKEY_LOCAL_MACHINE", nullptr, 0};
            EXPECT_EQ(registry.SetValue("Name", "saved"), 0);
        };
        EXPECT_TRUE(saver.KeepsWaiting(save, [] {
            CRegistry::SetupTree(true);
            EXPECT_EQ(NameInTree(), "saved");
        }));
    });
}

TEST(RegistryThreads, OneOfManyFirstHandlesReadsTheFileAndAllFindIt) {
    RegistryHost host{TreeWith("x")};
    for (int round = 0; round < 20; ++round) {
        host.Run([] {
            OnThreads([](int) {
                const CRegistry registry{"", CRegistry::MHives[kHiveLocalMachine], 0};
                CRegistry machine{CRegistry::MHives[kHiveLocalMachine]};
                std::string name;
                EXPECT_EQ(machine.GetValue(name, "Name", nullptr), 0);
                EXPECT_EQ(name, "x");
            });
        });
    }
}

TEST(RegistryThreads, TreesThatCannotBeRestoredAreTriedByManyAtATime) {
    RegistryHost host;
    host.Run([] {
        OnThreads([](int id) {
            CRegistry registry;
            EXPECT_EQ(registry.Open("", nullptr, 0), 0);
            EXPECT_EQ(registry.CreateKey(nullptr, "HKEY_LOCAL_MACHINE"), 0);
            EXPECT_EQ(registry.SetValue(std::to_string(id).c_str(), id), 0);
        });
    });
    EXPECT_TRUE(host.Exists(kRegistry));
}

TEST(RegistryThreads, AHiveMayGoWhileHandlesAreMade) {
    RegistryHost host{TreeWith("first")};
    host.Run([] {
        OnThreads([](int id) {
            for (int i = 0; i < 100; ++i) {
                CRegistry registry;
                ASSERT_EQ(registry.Open("", nullptr, 0), 0);
                if (id != 0) {
                    (void)registry.Open("HKEY_LOCAL_MACHINE\\X", nullptr, 0);
                } else if (i % 2 == 0) {
                    (void)registry.DeleteKey("HKEY_LOCAL_MACHINE");
                } else {
                    EXPECT_EQ(registry.CreateKey(nullptr, "HKEY_LOCAL_MACHINE\\X"), 0);
                }
            }
        });
        EXPECT_EQ(WrittenTree(), "[HKEY_LOCAL_MACHINE]\n[X]\n\n\n\n");
    });
}

TEST(RegistryThreads, AHiveThatIsGivenToAHandleMayGoOnAnotherThread) {
    void (*const readers[])() = {
        [] { EXPECT_NE(CRegistry{CRegistry::MHives[kHiveLocalMachine]}.Key(), nullptr); },
        [] { EXPECT_NE(CRegistry("", CRegistry::MHives[kHiveLocalMachine], 0).Key(), nullptr); },
        [] {
            std::string value;
            EXPECT_FALSE(CRegistry{}.GetUuidValue(value, "Uuid"));
        }};
    RegistryHost host{TreeWith("x")};
    for (const auto& read : readers) {
        host.Run([&read] {
            CRegistry root{"", nullptr, 0};
            // Relaxed: nothing but what is tested may order the two, or no sanitizer sees a race.
            std::atomic<bool> isRead{false};
            std::thread reader{[&] {
                read();
                isRead.store(true, std::memory_order_relaxed);
            }};
            while (!isRead.load(std::memory_order_relaxed)) std::this_thread::yield();
            EXPECT_EQ(root.DeleteKey("HKEY_LOCAL_MACHINE"), 0);
            EXPECT_EQ(CRegistry::MHives[kHiveLocalMachine], nullptr);
            reader.join();
        });
        host.File(kRegistry, TreeWith("x"));
    }
}
