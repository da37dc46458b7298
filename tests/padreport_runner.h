#pragma once

// For tests of padreport: logs, and runs of the program as its user runs it.

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <string>

#include "lib/platform/posix_helpers.h"
#include "lib/platform/string_operations.h"

namespace padreport {

using Json = nlohmann::json;

/// A folder of its own for each test, which is the present folder meanwhile.
class PadreportTest : public testing::Test {
public:
    ~PadreportTest() override {
        std::filesystem::current_path("/");
        std::filesystem::remove_all(m_folder);
    }

protected:
    struct Outcome {
        int status = -1;
        std::string output;
        std::string errors;
    };

    PadreportTest() {
        std::string pattern = testing::TempDir() + "padreport.XXXXXX";
        m_folder = mkdtemp(pattern.data());
        std::filesystem::current_path(m_folder);
    }

    static void Write(const std::string& name, const std::string& text) {
        std::ofstream(name, std::ios::binary) << text;
        ASSERT_EQ(std::filesystem::file_size(name), text.size());
    }

    /// @param arguments as typed in a shell; may redirect standard input
    static Outcome Run(const std::string& arguments) {
        const std::string command = PADREPORT_PROGRAM " " + arguments + " >output 2>errors";
        const int status = std::system(command.c_str());
        return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, read_file_throw("output"),
                read_file_throw("errors")};
    }

    /// The report of one log.
    static Json Report(const std::string& log, const std::string& options = "") {
        Write("log", log);
        const Outcome outcome = Run("--json " + options + " log");
        EXPECT_EQ(outcome.status, 0) << outcome.errors;
        return Json::parse(outcome.output)["logs"][0];
    }

private:
    std::filesystem::path m_folder;
};

/// @param values in the order of the line
inline std::string SampleLine(std::int64_t milliseconds, unsigned button, const std::array<int, 4>& values,
                              bool touched) {
    return strprintf("%2d.%03d: BT%u: %5d %5d %5d %5d %c\n", static_cast<int>(milliseconds / 1000),
                     static_cast<int>(milliseconds % 1000), button, values[0], values[1], values[2],
                     values[3], touched ? '*' : ' ');
}

/// A sample of button 1 of which only the last value matters.
inline std::string SampleLine(std::int64_t milliseconds, int signal, bool touched) {
    return SampleLine(milliseconds, 1, {1200 + signal, 1200, 4, signal}, touched);
}

}  // namespace padreport
