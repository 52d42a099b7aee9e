// The settings file on a thread with the stack that the service's own threads have.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "Platform/Thread.h"
#include "ServiceProcess/CommonSettings.h"

namespace {

// Each section was let go inside its parent: a line of ten kilobytes used up the stack and ended the service.
TEST(RealSettingsTest, SectionsNestedAsDeepAsALineIsLongAreReadAndLetGo) {
    constexpr int kDepth = 5000;
    std::string folder = (std::filesystem::temp_directory_path() / "orvsettingsXXXXXX").string();
    ASSERT_NE(mkdtemp(folder.data()), nullptr);
    const std::string file = folder + "/s.ini";
    std::string path = "a";
    for (int level = 1; level < kDepth; ++level) path += "/a";
    std::ofstream(file) << "[" << path << "]\nkey=deep\n[b]\nkey=other\n";

    std::string key;
    Platform::Thread service("service", [&] {
        Orv::CommonSettings settings;
        EXPECT_TRUE(settings.Load(file.c_str()));
        EXPECT_TRUE(settings.Load(file.c_str()));  // replaces the whole tree
        EXPECT_EQ(settings.children.size(), 2u);
        EXPECT_EQ(settings.children.front().children.front().name, "a/a");
        key = settings.GetValue("[b].key").AsString();
    });
    service.Join();
    EXPECT_EQ(key, "other");
    std::filesystem::remove_all(folder);
}

}  // namespace
