// What padreport reads in a log: lines, runs, packed files, rubbish.

#include "tests/padreport_runner.h"

namespace padreport {

namespace {

const std::string REST = SampleLine(1000, 0, false);

using PadreportLog = PadreportTest;

TEST_F(PadreportLog, CountsEachLineByItsKind) {
    const std::pair<const char*, std::vector<std::string>> kinds[] = {
        {"samples",
         {" 2.480: BT3:  1360  1236     8   118 *", "2.480: BT3: 1360 1236 8 118",
          "4000000.000: BT255: -1 -2 0 9  ", " 2.480: BT3:  1360  1236     8   118 *\r",
          " 2.480: BT3: -2147483648  1236     8 2147483647 *"}},
        {"info", {"INFO: Button Threshold 03 = 40", "INFO: NOISE_TH 20", "INFO: LOWBASELINE -1\r"}},
        {"setup_notes", {"UNKNOWN param 173 0", "ZERO param 0 7"}},
        {"led_masks", {"SetButtonMask: START: BT1: f", "SetButtonMask:    5: BT2: 3"}},
        {"empty", {"", "\r", "   "}},
        {"complaints",
         {"ERROR: Diagnostics 31 - OUT OF RANGE", "Invalid button format", "Strange button count 4"}},
        {"other",
         {"SubmitUsage: No such device (19)", "(*) DirectFB/Core", "\x1B[31mred\x1B[0m",
          "gr\xC3\xBC\xC3\x9F"}},
        {"damaged",
         {" 2.480: BT3:  1360  1236     8", " 2.48: BT3: 1360 1236 8 118 *", " 2.480: BT0: 1360 1236 8 118 *",
          " 2.480: BT256: 1360 1236 8 118 *", "-2.480: BT3: 1360 1236 8 118 *",
          " 2.480: BT3: 1360 1236 8 118*", " 2.480: BT3: 1360 1236 8 2147483648 *",
          " 2.480: BT3: 1360 12 2.520: BT4: 1 2 3 4 *", "99999999999.000: BT3: 1360 1236 8 118 *",
          "36     8   118 *", "INFO: Button Threshold 03 =", "INFO: Button Threshold 0 = 4",
          "INFO: NOISE_TH"}},
        {"binary", {std::string("\0\0", 2), "\x01\x02", " 2.480: BT3:\x7F 1360 1236 8 118 *"}},
        {"too_long", {std::string(1025, 'x'), REST.substr(0, REST.size() - 1) + std::string(2000, ' ')}},
    };
    for (const auto& [kind, lines] : kinds) {
        for (const std::string& line : lines) {
            std::string log = REST;
            log.append(line).append("\n").append(REST);
            const Json counts = Report(log)["lines"];
            const bool isSample = std::string("samples") == kind;
            EXPECT_EQ(counts[kind]["count"], isSample ? 3 : 1) << line;
            EXPECT_EQ(counts[kind]["first_line"], isSample ? 1 : 2) << line;
            EXPECT_EQ(counts["samples"]["count"], isSample ? 3 : 2) << line;
        }
    }
}

TEST_F(PadreportLog, NamesCutLinesAtBothEnds) {
    const std::string end = "36     8   118 *\n";
    for (const char* const start :
         {" 2.480: BT3:  1360  1236     8   11", " 2.480: BT3:  13", "INFO: NOISE_TH 2", "2"}) {
        const Json lines = Report(end + REST + start)["lines"];
        EXPECT_EQ(lines["cut"]["count"], 2) << start;
        EXPECT_EQ(lines["cut"]["first_line"], 1);
        EXPECT_EQ(lines["samples"]["count"], 1);
    }
    // A last line that misses nothing but its end is whole.
    for (const char* const whole :
         {" 2.480: BT3:  1360  1236     8   118 *", " 2.480: BT3:  1360  1236     8   118  "}) {
        EXPECT_EQ(Report(whole)["lines"]["samples"]["count"], 1) << whole;
    }
}

TEST_F(PadreportLog, ReadsPackedLogsAndWhatIsLeftOfThem) {
    std::string log;
    for (int i = 1; i < 20000; ++i) {
        log += SampleLine(std::int64_t{40} * i, i * 7919 % 50, false);
    }
    const Json plain = Report(log);
    ASSERT_EQ(std::system("gzip -c log > packed; head -c 20000 packed > cut"), 0);

    Json packed = Json::parse(Run("--json packed").output)["logs"][0];
    packed["log"] = "log";
    EXPECT_EQ(packed, plain);
    EXPECT_EQ(Json::parse(Run("--json < packed").output)["logs"][0]["buttons"], plain["buttons"]);

    const Outcome outcome = Run("--json cut");
    const Json cut = Json::parse(outcome.output)["logs"][0];
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(cut["read_trouble"], "unexpected end of file");
    EXPECT_EQ(outcome.errors, "padreport: cut: unexpected end of file\n");
    EXPECT_GT(cut["samples"], 1000);
    EXPECT_LT(cut["samples"], plain["samples"]);
}

TEST_F(PadreportLog, TellsRunsApart) {
    const std::string info = "INFO: Button Threshold 01 = 40\nINFO: NOISE_TH 20\n";
    const std::string otherInfo = "INFO: Button Threshold 01 = 50\nINFO: NOISE_TH 20\n";
    const std::string run = SampleLine(0, 0, false) + SampleLine(500, 0, false) + SampleLine(900, 0, false);
    const struct {
        std::string log;
        int runs;
        int fallingStamps;
        int jumps;
        double seconds;
        bool changed;
    } rows[] = {
        {info + run, 1, 0, 0, 0.4, false},
        {run + run, 2, 1, 0, 0.8, false},
        {info + run + info + run, 2, 0, 0, 0.8, false},
        {info + run + otherInfo + run, 2, 0, 0, 0.8, true},
        {info + info + run, 1, 0, 0, 0.4, false},
        {info + run + info + SampleLine(1000, 0, false), 2, 0, 0, 0.4, false},
        {run + SampleLine(60'900, 0, false), 1, 0, 0, 60.4, false},
        {run + SampleLine(60'901, 0, false) + SampleLine(61'001, 0, false), 1, 0, 1, 0.5, false},
    };
    for (const auto& row : rows) {
        const Json report = Report(row.log);
        EXPECT_EQ(report["runs"], row.runs) << row.log;
        EXPECT_EQ(report["falling_stamps"]["count"], row.fallingStamps) << row.log;
        EXPECT_EQ(report["jumps"]["count"], row.jumps) << row.log;
        EXPECT_DOUBLE_EQ(report["duration_s"], row.seconds) << row.log;
        EXPECT_EQ(report["board_changed"], row.changed) << row.log;
    }
    const Json board = Report(info + run + otherInfo + run)["board"];
    EXPECT_EQ(board, Json::parse(R"({"finger_thresholds": {"1": 50}, "parameters": {"NOISE_TH": 20}})"));
}

}  // namespace

}  // namespace padreport
