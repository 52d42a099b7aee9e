// Where the tools look for pipes. Method: settings files in a simulated world.
#include "Tools/PipeFolder.h"

#include <gtest/gtest.h>

#include <cerrno>

#include "Platform/NamedPipe.h"
#include "Platform/Path.h"
#include "Platform/sim/Simulation.h"

namespace Orv {
namespace {

class PipeFolderTest : public testing::Test {
protected:
    void AddSettings(const std::string& path, const std::string& folder) {
        sim_.Files().AddFile(path, "[General]\nPipePath=" + folder + "\n");
    }
    // The folder after the choice; empty when it was refused.
    std::string Chosen(const std::string& folder, const std::string& configFile) {
        std::string chosen;
        sim_.Run([&] {
            if (ChoosePipeFolder(folder, configFile, error_)) chosen = Platform::PipeFolder();
        });
        return chosen;
    }

    Platform::Sim::Simulation sim_;
    const std::string usual_ = Platform::ProgramDataFolder() + "/Orv/Bin/OrvPhoneSystem.ini";
    std::string error_;
};

TEST_F(PipeFolderTest, WithoutAnySettingsFileItIsTheFolderThatTheServiceTakesByItself) {
    EXPECT_EQ(Chosen("", ""), "/run/Orv/pipe");
}

TEST_F(PipeFolderTest, TheServicesUsualSettingsFileNamesTheFolder) {
    AddSettings(usual_, "/srv/pipes");
    EXPECT_EQ(Chosen("", ""), "/srv/pipes");
}

TEST_F(PipeFolderTest, TheFirstOfTheUsualSettingsFilesCountsAlone) {
    AddSettings(usual_, "/srv/pipes");
    sim_.Files().AddFile("/etc/orv/OrvPhoneSystem.ini", "[General]\n");
    EXPECT_EQ(Chosen("", ""), "/run/Orv/pipe");
}

TEST_F(PipeFolderTest, ANamedSettingsFileComesBeforeTheUsualOnes) {
    AddSettings(usual_, "/srv/pipes");
    AddSettings("/home/a.ini", "\"/home/my pipes\"");
    EXPECT_EQ(Chosen("", "/home/a.ini"), "/home/my pipes");
}

TEST_F(PipeFolderTest, ANamedSettingsFileWithoutAPipePathLeavesTheServicesFolder) {
    AddSettings(usual_, "/srv/pipes");
    sim_.Files().AddFile("/home/a.ini", "[General]\nAppDataPath=/home/\n");
    EXPECT_EQ(Chosen("", "/home/a.ini"), "/run/Orv/pipe");
}

TEST_F(PipeFolderTest, ANamedSettingsFileThatCannotBeReadIsRefusedWithWhatToDo) {
    AddSettings(usual_, "/srv/pipes");
    EXPECT_EQ(Chosen("", "/home/none.ini"), "");
    EXPECT_EQ(error_, "the settings file /home/none.ini cannot be opened; check its name and its rights");
}

// What stood in front of the bad spot was taken for all of it: without its PipePath the pipes were looked for where the
// service does not serve them.
TEST_F(PipeFolderTest, ASettingsFileThatCannotBeReadToItsEndIsRefusedNamedOrNot) {
    for (const std::string& file : {usual_, std::string("/home/a.ini")}) {
        AddSettings(file, "/srv/pipes");
        sim_.Files().FailReads(file, EIO, 1);
        EXPECT_EQ(Chosen("", file == usual_ ? "" : file), "");
        EXPECT_EQ(error_, "the settings file " + file +
                              " cannot be read to its end; look at its disk, and write the file again");
    }
    EXPECT_EQ(Chosen("run/pipe", ""), "run/pipe") << "no file is wanted";
}

TEST_F(PipeFolderTest, AFolderOnTheCommandLineComesBeforeEverything) {
    AddSettings(usual_, "/srv/pipes");
    EXPECT_EQ(Chosen("run/pipe", ""), "run/pipe");
}

}  // namespace
}  // namespace Orv
