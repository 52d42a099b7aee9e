// A database served by a real orv-config on a port of its own, with orvctl to administer it.
#pragma once

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <regex>
#include <string>
#include <vector>

#include "tests/support/OtherUser.h"
#include "tests/support/Process.h"

namespace OrvTest {

inline const std::string OrvConfigProgram = std::string(ORV_BIN_FOLDER) + "/orv-config";
inline const std::string OrvctlProgram = std::string(ORV_BIN_FOLDER) + "/orvctl";

class ServedDatabase : public ::testing::Test {
protected:
    void SetUp() override {
        AddUser("root", "admin", "secret");
        AddUser("feeder", "reader", "quiet");
        Serve();
    }

    void AddUser(const std::string& name, const std::string& role, const std::string& password) {
        const RunResult result = OrvTest::Run(
            {OrvConfigProgram, "user", "add", name, "--role", role, "--database", database_, "--password-file", "-"},
            password + "\n");
        ASSERT_EQ(result.exitCode, 0) << result.error;
    }
    // The port stays the same after the first time, so that settings files stay right.
    void Serve() {
        ProcessOptions options;
        options.command = {OrvConfigProgram, "serve", "--database", database_, "--port", port_};
        options.outputFile = folder_ / ("out" + std::to_string(++starts_));
        options.errorFile = folder_ / "config.log";
        server_ = Process(options);
        std::smatch match;
        std::string text;
        const bool up = Eventually([&] {
            text = ReadFileText(options.outputFile);
            return std::regex_search(text, match, std::regex("listening on 127.0.0.1:([0-9]+)\n"));
        });
        ASSERT_TRUE(up) << text << ReadFileText(options.errorFile);
        port_ = match[1];
        settings_ = WriteSettings("root", "secret");
    }
    std::string WriteSettings(const std::string& user, const std::string& password) {
        const std::string path = folder_ / (user + ".ini");
        WriteFileText(path, "[ConfService]\nconfNIC=127.0.0.1\nConfPort=" + port_ + "\nconfUser=" + user +
                                "\nconfPass=" + password + "\n");
        return path;
    }

    RunResult Ctl(std::vector<std::string> arguments, const std::string& input = "") {
        return CtlAs(settings_, std::move(arguments), input);
    }
    RunResult CtlAs(const std::string& settings, std::vector<std::string> arguments, const std::string& input = "") {
        arguments.insert(arguments.begin(), {OrvctlProgram, "-c", settings});
        return OrvTest::Run(arguments, input);
    }
    // Its output; the test fails unless it ends with code 0.
    std::string Must(std::vector<std::string> arguments, const std::string& input = "") {
        const std::string what = ::testing::PrintToString(arguments);
        const RunResult result = Ctl(std::move(arguments), input);
        EXPECT_EQ(result.exitCode, 0) << what << "\n" << result.output << result.error;
        return result.output;
    }
    nlohmann::json MustJson(std::vector<std::string> arguments) {
        arguments.push_back("--json");
        const std::string text = Must(std::move(arguments));
        return nlohmann::json::parse(text, nullptr, false);
    }
    // A command as a user that root's rights do not cover, with its program where that user can reach it. Without root
    // it stays as it is.
    std::vector<std::string> AsAnother(std::vector<std::string> command) {
        if (::geteuid() != 0) return command;
        std::filesystem::permissions(folder_.Path(), std::filesystem::perms{0755});
        const std::string program = folder_ / std::filesystem::path(command[0]).filename().string();
        std::filesystem::copy_file(command[0], program, std::filesystem::copy_options::skip_existing);
        command[0] = program;
        return AsUser(Nobody, command);
    }
    void ExpectFailure(const std::vector<std::string>& arguments, int code, const std::string& text) {
        const RunResult result = Ctl(arguments);
        EXPECT_EQ(result.exitCode, code) << ::testing::PrintToString(arguments) << result.output << result.error;
        EXPECT_NE(result.error.find(text), std::string::npos) << result.error;
    }

    TempFolder folder_;
    const std::string database_ = folder_ / "config.db";
    std::string settings_;
    std::string port_ = "0";
    int starts_ = 0;
    Process server_;
};

}  // namespace OrvTest
