#include "Tools/orv-publish/Messages.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>

#include "Tools/orv-publish/Publisher.h"

namespace Orv {
namespace {

using testing::HasSubstr;

std::string Failure(Platform::SystemError error) {
    return ServeFailure("radio", "/run/p", "/run/p/radio", error);
}

TEST(MessagesTest, EachReasonWhyAPipeCannotBeServedSaysWhatToDo) {
    EXPECT_THAT(Failure(EADDRINUSE), HasSubstr("another program serves it already (/run/p/radio)"));
    EXPECT_THAT(Failure(EADDRINUSE), HasSubstr("choose another name"));
    EXPECT_THAT(Failure(EEXIST), HasSubstr("something that is no pipe stands at /run/p/radio.\nRemove it"));
    EXPECT_THAT(Failure(ENOENT), HasSubstr("the folder /run/p is missing and cannot be made.\nStart the service"));
    EXPECT_EQ(Failure(ENOTDIR), Failure(ENOENT));
    EXPECT_THAT(Failure(EACCES), HasSubstr("you may not make pipes in the folder /run/p.\nBecome a member"));
    EXPECT_EQ(Failure(EPERM), Failure(EACCES));
    EXPECT_THAT(Failure(ENAMETOOLONG), HasSubstr("at most 107 bytes"));
    EXPECT_THAT(Failure(EMFILE), HasSubstr(Platform::SystemErrorText(EMFILE)));
    for (const Platform::SystemError error : {EADDRINUSE, EEXIST, ENOENT, EACCES, ENAMETOOLONG, EMFILE}) {
        EXPECT_THAT(Failure(error), testing::StartsWith("cannot serve the pipe 'radio': "));
    }
}

TEST(MessagesTest, AnyFileNameIsOneWordOfTheShell) {
    EXPECT_EQ(ShellWord("a b.wav"), "'a b.wav'");
    EXPECT_EQ(ShellWord("it's"), "'it'\\''s'");
    EXPECT_EQ(ShellWord(""), "''");
}

TEST(MessagesTest, SoundIsToldInSeconds) {
    EXPECT_EQ(SoundLength(0), "0.000 s of sound");
    EXPECT_EQ(SoundLength(24000), "1.500 s of sound");
}

TEST(MessagesTest, APipePathNamesThePipeBehindIt) {
    EXPECT_EQ(BarePipeName("\\\\.\\pipe\\radio"), "radio");
    EXPECT_EQ(BarePipeName("radio"), "radio");
    EXPECT_EQ(BarePipeName("\\\\.\\pipe\\"), "");
}

}  // namespace
}  // namespace Orv
