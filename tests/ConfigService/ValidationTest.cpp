// Goal: what cannot work is refused with the field and the fix, what is only odd is warned of. Method: single rows go
// through the store as an administrator's change would.
#include "ConfigService/Validation.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "ConfigService/Store.h"
#include "tests/support/Process.h"

namespace Orv {
namespace {

using ::testing::HasSubstr;
using ::testing::IsEmpty;

class ValidationTest : public ::testing::Test {
protected:
    void SetUp() override {
        std::string reason;
        store_ = Store::Open(folder_ / "config.db", reason);
        ASSERT_NE(store_, nullptr) << reason;
    }
    using Values = std::vector<std::pair<std::string, Value>>;

    ApplyResult Apply(const std::string& table, const std::string& key, Values values) {
        return store_->Apply({{table, Action::Put, 0, key, std::move(values)}});
    }
    // The one refusal of a change.
    Finding Refusal(const ApplyResult& result) {
        EXPECT_EQ(result.outcome, Outcome::Refused);
        EXPECT_EQ(result.errors.size(), 1u);
        return result.errors.empty() ? Finding{} : result.errors.front();
    }
    void ExpectRefused(const ApplyResult& result, const std::string& field, const std::string& text) {
        const Finding refusal = Refusal(result);
        EXPECT_EQ(refusal.field, field);
        EXPECT_THAT(refusal.text, HasSubstr(text));
    }
    void ExpectWarned(const ApplyResult& result, const std::string& field, const std::string& text) {
        EXPECT_EQ(result.outcome, Outcome::Done);
        ASSERT_EQ(result.warnings.size(), 1u);
        EXPECT_EQ(result.warnings.front().field, field);
        EXPECT_THAT(result.warnings.front().text, HasSubstr(text));
    }
    void ExpectPlain(const ApplyResult& result) {
        EXPECT_EQ(result.outcome, Outcome::Done) << (result.errors.empty() ? "" : result.errors.front().text);
        EXPECT_THAT(result.warnings, IsEmpty());
    }

    OrvTest::TempFolder folder_;
    std::unique_ptr<Store> store_;
};

// --- feeds -----------------------------------------------------------------------------------------------------------

TEST_F(ValidationTest, AFeedTypeOutsideZeroToThreeIsRefused) {
    for (const i32 type : {-1, 4, INT32_MAX, INT32_MIN}) {
        ExpectRefused(Apply("AUDIOFEED", "a", {{"feedtype", type}}), "feedtype", "use 0 (the default stream)");
    }
    ExpectPlain(Apply("AUDIOFEED", "a", {{"feedtype", 0}}));
    for (const i32 type : {2, 3}) {
        ExpectPlain(Apply("AUDIOFEED", "a", {{"feedtype", type}, {"thename", std::string("folder")}}));
    }
}

TEST_F(ValidationTest, LineInputIsAcceptedWithAWarning) {
    ExpectWarned(Apply("AUDIOFEED", "a", {{"feedtype", 1}}), "feedtype", "not available");
}

TEST_F(ValidationTest, AFolderFeedWithoutAFolderIsAcceptedWithAWarning) {
    ExpectWarned(Apply("AUDIOFEED", "a", {{"feedtype", 3}}), "thename", "DEFAULTAUDIOFILE");
    ExpectWarned(Apply("AUDIOFEED", "b", {{"feedtype", 2}, {"thename", std::string()}}), "thename", "DEFAULTAUDIOFILE");
}

TEST_F(ValidationTest, APauseBelowZeroIsRefused) {
    ExpectRefused(Apply("AUDIOFEED", "a", {{"minannouncementpause", -1}, {"maxannouncementpause", 5}}),
                  "minannouncementpause", "is -1");
    ExpectRefused(Apply("AUDIOFEED", "a", {{"maxannouncementpause", -7}}), "maxannouncementpause", "is -7");
}

TEST_F(ValidationTest, AShortestPauseAboveTheLongestIsRefusedAlsoWhenTheLongestIsAbsent) {
    ExpectRefused(Apply("AUDIOFEED", "a", {{"minannouncementpause", 6}, {"maxannouncementpause", 5}}),
                  "minannouncementpause", "above maxannouncementpause (5)");
    ExpectRefused(Apply("AUDIOFEED", "a", {{"minannouncementpause", 1}}), "minannouncementpause",
                  "absent, which counts as 0");
    ExpectPlain(Apply("AUDIOFEED", "a", {{"minannouncementpause", 5}, {"maxannouncementpause", 5}}));
}

TEST_F(ValidationTest, AnnouncementsWithoutAPauseAreWarnedOf) {
    ExpectWarned(Apply("AUDIOFEED", "a", {{"playannouncements", 1}}), "maxannouncementpause", "without a pause");
}

TEST_F(ValidationTest, AVolumeOutsideZeroToHundredIsRefused) {
    for (const i32 volume : {-1, 101}) {
        ExpectRefused(Apply("AUDIOFEED", "a", {{"maxvolume", volume}}), "maxvolume", "give 0 to 100");
    }
    for (const i32 volume : {0, 100}) ExpectPlain(Apply("AUDIOFEED", "a", {{"maxvolume", volume}}));
}

TEST_F(ValidationTest, AutogainWithoutAVolumeOfItsOwnIsWarnedOf) {
    ExpectWarned(Apply("AUDIOFEED", "a", {{"autogain", 1}}), "autogain", "beside a maxvolume");
    ExpectPlain(Apply("AUDIOFEED", "a", {{"autogain", 1}, {"maxvolume", 50}}));
}

TEST_F(ValidationTest, AnEmptyPipeNameIsRefused) {
    ExpectRefused(Apply("AUDIOFEED", "", {}), "pipename", "is empty");
    ExpectPlain(Apply("AUDIOFEED", "a", {}));
    ExpectRefused(store_->Apply({{"AUDIOFEED", Action::Set, 0, "a", {{"pipename", Value()}}}}), "pipename", "is empty");
}

TEST_F(ValidationTest, APipeNameThatAnotherRowHasIsRefusedWhateverItsCase) {
    ExpectPlain(Apply("AUDIOFEED", "Lobby", {}));
    ExpectPlain(Apply("AUDIOFEED", "bar", {}));
    ExpectRefused(store_->Apply({{"AUDIOFEED", Action::Set, 0, "bar", {{"pipename", std::string("LOBBY")}}}}),
                  "pipename", "which another row has");
    ExpectRefused(store_->Apply({{"AUDIOFEED", Action::Add, 0, "lobby", {}}}), "pipename", "is there already");
    const ApplyResult own =
        store_->Apply({{"AUDIOFEED", Action::Set, 0, "Lobby", {{"pipename", std::string("lobby")}}}});
    EXPECT_EQ(own.outcome, Outcome::Done) << "a row may change the case of its own name";
}

TEST_F(ValidationTest, TwoNewRowsOfOneTransactionCannotShareAPipeName) {
    ExpectPlain(Apply("AUDIOFEED", "a", {}));
    ExpectPlain(Apply("AUDIOFEED", "b", {}));
    ExpectRefused(store_->Apply({{"AUDIOFEED", Action::Set, 1, "", {{"pipename", std::string("c")}}},
                                 {"AUDIOFEED", Action::Set, 2, "", {{"pipename", std::string("C")}}}}),
                  "pipename", "which another row has");
}

TEST_F(ValidationTest, LettersBeyondAToZAreDifferentInEitherCase) {
    ExpectPlain(Apply("AUDIOFEED", "\xC3\xA4", {}));
    ExpectPlain(Apply("AUDIOFEED", "\xC3\x84", {}));
}

TEST_F(ValidationTest, APipeNameThatAnotherRowGivesUpInTheSameTransactionIsRefusedAndFreeInTheNext) {
    ExpectPlain(Apply("AUDIOFEED", "a", {}));
    ExpectPlain(Apply("AUDIOFEED", "b", {}));
    const Change free{"AUDIOFEED", Action::Set, 1, "", {{"pipename", std::string("c")}}};
    const Change take{"AUDIOFEED", Action::Set, 2, "", {{"pipename", std::string("A")}}};
    ExpectRefused(store_->Apply({free, take}), "pipename", "gives up in the same transaction; do it in two");
    ExpectRefused(store_->Apply({take, free}), "pipename", "gives up in the same transaction; do it in two");
    ExpectRefused(store_->Apply({{"AUDIOFEED", Action::Remove, 1, "", {}}, take}), "pipename", "gives up");
    EXPECT_EQ(store_->Apply({free}).outcome, Outcome::Done);
    EXPECT_EQ(store_->Apply({take}).outcome, Outcome::Done);
}

TEST_F(ValidationTest, APipeNameThatIsTooLongForItsFolderIsWarnedOf) {
    ExpectPlain(Apply("AUDIOFEED", std::string(93, 'a'), {}));
    ExpectWarned(Apply("AUDIOFEED", std::string(94, 'b'), {}), "pipename", "choose a shorter name");
    ExpectWarned(Apply("AUDIOFEED", std::string(32, '/'), {}), "pipename", "takes 96 bytes");
}

// --- announcements ---------------------------------------------------------------------------------------------------

TEST_F(ValidationTest, AnAnnouncementWithoutAFileIsRefused) {
    ExpectRefused(Apply("ANNOUNCEMENT", "a", {}), "thefile", "name the sound file");
    ExpectRefused(Apply("ANNOUNCEMENT", "a", {{"thefile", std::string()}}), "thefile", "name the sound file");
    ExpectPlain(Apply("ANNOUNCEMENT", "a", {{"thefile", std::string("/x.wav")}}));
    ExpectRefused(store_->Apply({{"ANNOUNCEMENT", Action::Set, 0, "a", {{"thefile", Value()}}}}), "thefile",
                  "name the sound file");
}

TEST_F(ValidationTest, AnAnnouncementWithoutANameIsRefused) {
    ExpectRefused(Apply("ANNOUNCEMENT", "", {{"thefile", std::string("/x.wav")}}), "thename", "is empty");
}

TEST_F(ValidationTest, AnAnnouncementNameThatAnotherRowHasIsRefusedByItsExactSpelling) {
    ExpectPlain(Apply("ANNOUNCEMENT", "a", {{"thefile", std::string("/x.wav")}}));
    ExpectPlain(Apply("ANNOUNCEMENT", "A", {{"thefile", std::string("/x.wav")}}));
    const Finding refusal =
        Refusal(store_->Apply({{"ANNOUNCEMENT", Action::Set, 0, "A", {{"thename", std::string("a")}}}}));
    EXPECT_EQ(refusal.field, "thename");
}

TEST_F(ValidationTest, AnAnnouncementTypeOtherThanZeroAndOneIsWarnedOf) {
    ExpectWarned(Apply("ANNOUNCEMENT", "a", {{"thefile", std::string("/x.wav")}, {"thetype", 2}}), "thetype",
                 "counts as 0");
}

// --- parameters ------------------------------------------------------------------------------------------------------

TEST_F(ValidationTest, TheVolumeParameterIsAPercentage) {
    for (const char* value : {"", "101", "-1", "50%", " 5", "0x5", "1000"}) {
        ExpectRefused(Apply("PARAMETER", "AUDIO_PROVIDER_MAX_VOLUME", {{"value", std::string(value)}}), "value",
                      "percentage from 0 to 100");
    }
    ExpectRefused(Apply("PARAMETER", "AUDIO_PROVIDER_MAX_VOLUME", {}), "value", "percentage from 0 to 100");
    for (const char* value : {"0", "100", "007"}) {
        ExpectPlain(Apply("PARAMETER", "AUDIO_PROVIDER_MAX_VOLUME", {{"value", std::string(value)}}));
    }
}

TEST_F(ValidationTest, TheAutogainParameterIsExactlyZeroOrOne) {
    for (const char* value : {"", "2", "true", "1 ", "01"}) {
        ExpectRefused(Apply("PARAMETER", "AUDIO_PROVIDER_ENABLE_AUTOGAIN", {{"value", std::string(value)}}), "value",
                      "0 (off) or 1 (on)");
    }
    ExpectPlain(Apply("PARAMETER", "AUDIO_PROVIDER_ENABLE_AUTOGAIN", {{"value", std::string("1")}}));
}

TEST_F(ValidationTest, TheLogLevelParameterIsOneDigitFromZeroToFive) {
    for (const char* value : {"", "6", "12", "abc", "-1"}) {
        ExpectRefused(Apply("PARAMETER", "SYSTEMLOGGINGLEVEL", {{"value", std::string(value)}}), "value",
                      "one digit from 0 to 5");
    }
    for (const char* value : {"0", "5"}) {
        ExpectPlain(Apply("PARAMETER", "SYSTEMLOGGINGLEVEL", {{"value", std::string(value)}}));
    }
}

TEST_F(ValidationTest, AnUnknownParameterIsAcceptedWithAWarning) {
    ExpectWarned(Apply("PARAMETER", "COLOUR", {{"value", std::string("red")}}), "name", "is none that");
    ExpectWarned(Apply("PARAMETER", "defaultaudiofile", {}), "name", "DEFAULTAUDIOFILE is, and upper and lower case");
}

TEST_F(ValidationTest, AnEmptyPathParameterIsWarnedOf) {
    ExpectWarned(Apply("PARAMETER", "IVRPROMPTPATH", {}), "value", "is empty");
    ExpectWarned(Apply("PARAMETER", "DEFAULTAUDIOFILE", {}), "value", "leaves the file before it in force");
    ExpectPlain(Apply("PARAMETER", "DEFAULTAUDIOFILE", {{"value", std::string("/x.wav")}}));
}

TEST_F(ValidationTest, AParameterWithoutANameOrWithATakenOneIsRefused) {
    ExpectRefused(Apply("PARAMETER", "", {}), "name", "is empty");
    ExpectWarned(Apply("PARAMETER", "X", {}), "name", "is none that");
    ExpectRefused(store_->Apply({{"PARAMETER", Action::Add, 0, "X", {}}}), "name", "is there already");
}

// --- all of them -----------------------------------------------------------------------------------------------------

TEST_F(ValidationTest, AControlCharacterInAnyTextIsRefused) {
    const std::string controls[] = {"a\tb", "a\nb", "a\rb", std::string("a\0b", 3), "a\x1B[2J", "a\x7F", "a\xC2\x85"};
    for (const std::string& text : controls) {
        ExpectRefused(Apply("AUDIOFEED", text, {}), "pipename", "control character");
        ExpectRefused(Apply("AUDIOFEED", "a", {{"thename", text}}), "thename", "control character");
        ExpectRefused(Apply("ANNOUNCEMENT", text, {{"thefile", std::string("x")}}), "thename", "control character");
        ExpectRefused(Apply("ANNOUNCEMENT", "a", {{"thefile", text}}), "thefile", "control character");
        ExpectRefused(Apply("PARAMETER", text, {}), "name", "control character");
        ExpectRefused(Apply("PARAMETER", "IVRPROMPTPATH", {{"value", text}}), "value", "control character");
    }
    EXPECT_EQ(WhyTextRefused("na\xC3\xAFve \xE9 \xF0\x9F\x8E\xB5"), "");
}

TEST_F(ValidationTest, ATextOfMoreThan4096BytesIsRefused) {
    EXPECT_EQ(WhyTextRefused(std::string(4096, 'x')), "");
    ExpectRefused(Apply("AUDIOFEED", "a", {{"thename", std::string(4097, 'x')}}), "thename", "4096 are the most");
}

TEST_F(ValidationTest, ANumberForATextAndATextForANumberAreRefused) {
    ExpectRefused(Apply("AUDIOFEED", "a", {{"feedtype", std::string("3")}}), "feedtype", "give a whole number");
    ExpectRefused(Apply("AUDIOFEED", "a", {{"thename", 3}}), "thename", "give a text");
}

TEST_F(ValidationTest, AnUnknownColumnOrTableIsRefused) {
    ExpectRefused(Apply("AUDIOFEED", "a", {{"colour", 3}}), "colour", "AUDIOFEED has pipename, thename");
    ExpectRefused(Apply("AUDIOFEED", "a", {{"idaudiofeed", 3}}), "idaudiofeed", "is no column that can be set");
    ExpectRefused(Apply("USERS", "a", {}), "", "no table of this service");
}

TEST_F(ValidationTest, AMissingRowIsToldAsMissing) {
    for (const Action action : {Action::Set, Action::Remove}) {
        const Finding refusal = Refusal(store_->Apply({{"AUDIOFEED", action, 0, "gone", {}}}));
        EXPECT_TRUE(refusal.notFound);
        EXPECT_THAT(refusal.text, HasSubstr("does not exist"));
    }
}

}  // namespace
}  // namespace Orv
