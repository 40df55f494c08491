// The store's change notification: every completed replacement or removal of
// a key, by any writer, reaches the callback on the watching thread's context.
#include <gio/gio.h>
#include <gtest/gtest.h>
#include <vconf.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <thread>

#include "ConsentTestSupport.h"
#include "TempStore.h"

namespace {

namespace fs = std::filesystem;
using namespace consenttest;

const char kKey[] = "db/veranti/disclaimeragrees";

// Counts the calls for one key and remembers the value seen in the last one.
class AStoreWatch : public testing::Test {
protected:
    void TearDown() override {
        if (m_Id != 0) {
            EXPECT_EQ(vconf_watch_remove(m_Id), 0);
        }
    }

    void Watch() {
        m_Id = vconf_watch_add(kKey, &AStoreWatch::OnChange, this);
        ASSERT_NE(m_Id, 0u) << std::strerror(errno);
    }

    static void OnChange(const char* key, void* data) {
        auto* self = static_cast<AStoreWatch*>(data);
        ++self->m_Calls;
        char* value = vconf_get_str(key);
        self->m_Seen = value ? value : "<absent>";
        free(value);
        if (self->m_OnCall) self->m_OnCall();
    }

    std::string KeyFile() const { return m_Store.Root() + "/" + kKey; }

    testbed::TempStore m_Store;
    unsigned int m_Id = 0;
    int m_Calls = 0;
    std::string m_Seen;
    std::function<void()> m_OnCall;
};

// With the store root given relative to the working directory, and not made yet.
TEST_F(AStoreWatch, ReportsEachKindOfWriterEvenBeforeARelativeStoreRootExists) {
    const fs::path root(m_Store.Root());
    fs::current_path(root.parent_path());
    setenv("VCONF_ROOT", root.filename().c_str(), 1);
    fs::remove_all(root);
    Watch();
    // Each step changes the key its own way; the watch then reports the value it left.
    const struct {
        const char* how;
        std::function<void()> change;
        const char* value;
    } kWriters[] = {
        {"set by this process, making the root and the directories", [] { vconf_set_str(kKey, "one"); }, "one"},
        {"replaced by this process", [] { vconf_set_str(kKey, "two"); }, "two"},
        {"set by another process", [] { Vconftool(std::string("set ") + kKey + " three"); }, "three"},
        {"renamed into place by hand",
         [this] {
             std::ofstream(KeyFile() + ".new") << "four";
             fs::rename(KeyFile() + ".new", KeyFile());
         },
         "four"},
        {"unset by another process", [] { Vconftool(std::string("unset ") + kKey); }, "<absent>"},
        {"set again after its directories were removed",
         [this] {
             fs::remove_all(m_Store.Root() + "/db");
             vconf_set_str(kKey, "five");
         },
         "five"},
        {"removed by this process", [] { vconf_unset(kKey); }, "<absent>"},
    };
    for (const auto& writer : kWriters) {
        const int before = m_Calls;
        writer.change();
        EXPECT_TRUE(IterateUntil([&] { return m_Seen == writer.value; })) << writer.how << ": last seen " << m_Seen;
        EXPECT_GT(m_Calls, before) << writer.how;
    }
}

TEST_F(AStoreWatch, IgnoresOtherKeysInTheSameDirectoryAndStopsOnceRemovedAlsoFromItsOwnCallback) {
    ASSERT_EQ(vconf_set_str(kKey, "mine"), 0);
    Watch();
    m_OnCall = [this] {
        EXPECT_EQ(vconf_watch_remove(m_Id), 0);
        m_Id = 0;
    };
    ASSERT_EQ(vconf_set_str("db/veranti/terms_title", "other"), 0);
    ASSERT_EQ(vconf_set_str("db/veranti/disclaimeragrees2", "other"), 0);
    IterateFor(50);
    EXPECT_EQ(m_Calls, 0);
    ASSERT_EQ(vconf_set_str(kKey, "a"), 0);
    ASSERT_TRUE(IterateUntil([&] { return m_Seen == "a"; }));
    ASSERT_EQ(vconf_set_str(kKey, "b"), 0);
    IterateFor(50);
    EXPECT_EQ(m_Calls, 1);
}

TEST_F(AStoreWatch, CallsOnTheContextOfTheThreadThatAddedIt) {
    std::thread::id calledOn, watcherId;
    std::thread watcher([&] {
        watcherId = std::this_thread::get_id();
        g_autoptr(GMainContext) context = g_main_context_new();
        g_main_context_push_thread_default(context);
        Watch();
        m_OnCall = [&] { calledOn = std::this_thread::get_id(); };
        ASSERT_EQ(vconf_set_str(kKey, "there"), 0);
        EXPECT_TRUE(IterateUntil([&] { return m_Calls > 0; }, context));
        EXPECT_EQ(vconf_watch_remove(m_Id), 0);
        m_Id = 0;
        g_main_context_pop_thread_default(context);
    });
    watcher.join();
    EXPECT_EQ(calledOn, watcherId);
    IterateFor(20);
    EXPECT_EQ(m_Calls, 1) << "nothing arrives on the default context";
}

TEST(AStoreWatchRequest, IsRefusedForABadKeyOrCallbackAndAnUnknownId) {
    const testbed::TempStore store;
    const auto ignore = [](const char*, void*) {};
    for (const char* key : {"", "/abs", "a/../b", "a//b"}) {
        errno = 0;
        EXPECT_EQ(vconf_watch_add(key, ignore, nullptr), 0u) << key;
        EXPECT_EQ(errno, EINVAL) << key;
    }
    EXPECT_EQ(vconf_watch_add(kKey, nullptr, nullptr), 0u);
    EXPECT_EQ(vconf_watch_remove(12345), -1);
    const unsigned int id = vconf_watch_add(kKey, ignore, nullptr);
    ASSERT_NE(id, 0u);
    EXPECT_EQ(vconf_watch_remove(id), 0);
    EXPECT_EQ(vconf_watch_remove(id), -1) << "a second removal";
}

}  // namespace
