// padreport as its user runs it: from log to decision, several logs, the terminal, the command line.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <pty.h>
#include <signal.h>
#include <sys/ioctl.h>

#include <sstream>
#include <vector>

#include "tests/padreport_board.h"
#include "tests/padreport_runner.h"

namespace padreport {

namespace {

using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::Not;
using testing::StartsWith;

using PadreportProgram = PadreportTest;

std::vector<std::string> SplitLines(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line);
    }
    return lines;
}

/// A board on which button 2 is noisy, button 3 is weak, and the thresholds do not suit them.
BoardModel MakeTroubledBoard() {
    BoardModel board;
    board.noise[2] = 24;
    board.thresholds[2] = 24;
    board.lift[3] = 62;
    return board;
}

TEST_F(PadreportProgram, NamesTheNoisyAndTheWeakButtonWithThresholdsThatMendThem) {
    BoardModel board = MakeTroubledBoard();
    const Json before = Report(board.MakeLog());
    EXPECT_EQ(before["buttons"][0]["verdict"], "safe");
    EXPECT_NE(before["buttons"][1]["verdict"], "safe");
    EXPECT_NE(before["buttons"][2]["verdict"], "safe");
    EXPECT_EQ(before["buttons"][3]["verdict"], "safe");
    std::vector<std::pair<unsigned, std::string>> remarks;
    for (const Json& remark : before["remarks"]) {
        remarks.emplace_back(remark["button"], remark["what"]);
    }
    EXPECT_THAT(remarks, testing::ElementsAre(std::pair(2U, "noisy"), std::pair(3U, "weak")));

    for (const Json& button : before["buttons"]) {
        board.thresholds[button["button"]] = button["threshold_proposed"]["value"];
    }
    board.seed = 2;
    Write("before", MakeTroubledBoard().MakeLog());
    const Json after = Report(board.MakeLog());
    for (const Json& button : after["buttons"]) {
        EXPECT_EQ(button["verdict"], "safe") << button["button"];
    }
    const std::string comparison = Run("--compare before log").output;
    EXPECT_THAT(comparison,
                AllOf(HasSubstr("BT2 (verdict"), HasSubstr("BT3 (verdict"), HasSubstr("Worse: nothing.")));
}

TEST_F(PadreportProgram, ComparesBeyondTheNoiseOfTheFigures) {
    const auto compare = [](const BoardModel& before, const BoardModel& after) {
        Write("before", before.MakeLog());
        Write("after", after.MakeLog());
        return Run("--compare before after").output;
    };
    for (unsigned seed = 2; seed < 12; ++seed) {
        BoardModel again;
        again.seed = seed;
        EXPECT_THAT(compare({}, again), AllOf(HasSubstr("Better: nothing."), HasSubstr("Worse: nothing.")))
            << seed;
    }
    BoardModel other;
    other.noise[1] = 12;
    other.lift[4] = 180;
    other.lift.erase(2);
    other.thresholds.erase(2);
    const std::string report = compare({}, other);
    EXPECT_THAT(report, HasSubstr("Worse: BT1 (spread at rest of value 1, separation of value 1"));
    EXPECT_THAT(report, HasSubstr("Better: BT4 (rise of value 1, rise of value 4)."));
    EXPECT_THAT(report, HasSubstr("safe    not in the log"));

    const Json json = Json::parse(Run("--compare --json after before").output);
    EXPECT_EQ(json["buttons"][0]["values"][3]["rest_spread"]["effect"], "better");
    EXPECT_EQ(json["buttons"][2]["values"][3]["rest_median"]["effect"], "none");
    EXPECT_EQ(json["buttons"][3]["values"][3]["rise"]["effect"], "worse");

    // A fifth of each second is lost.
    std::string holes;
    for (const std::string& line : SplitLines(BoardModel().MakeLog())) {
        if (line.find(".5") > 3 && line.find(".6") > 3) {
            holes += line + "\n";
        }
    }
    Write("after", holes);
    EXPECT_THAT(Run("--compare before after").output, HasSubstr("Worse: BT1 (gaps); BT2 (gaps)"));

    // Too short to tell.
    Write("before", SampleLine(10, 0, false) + SampleLine(20, 0, false));
    EXPECT_THAT(Run("--compare before after").output, AllOf(HasSubstr("?"), HasSubstr("Better: nothing.")));
    Write("after", "");
    const Outcome outcome = Run("--compare before after");
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.errors, "padreport: after: no samples\n");
}

TEST_F(PadreportProgram, SummarizesWithTheWorstFirst) {
    BoardModel weak;
    weak.lift[2] = 64;
    Write("a-good", BoardModel().MakeLog());
    Write("b-weak", weak.MakeLog());
    Write("c-troubled", MakeTroubledBoard().MakeLog() + "Strange button count 4\n");
    Write("d-empty", "");
    Write("e-untouched", SampleLine(0, 0, false));
    Write("f-stuck", SampleLine(0, 0, true));
    const std::string files = "a-good b-weak c-troubled d-empty e-untouched f-stuck g-missing";
    const Outcome outcome = Run("--json --summary " + files);
    EXPECT_EQ(outcome.status, 0);
    const Json logs = Json::parse(outcome.output)["logs"];
    std::vector<std::string> order;
    for (const Json& log : logs) {
        order.push_back(log["log"].get<std::string>() + ": " + log["worst"].get<std::string>());
    }
    EXPECT_THAT(order, testing::ElementsAre("d-empty: no samples", "g-missing: no samples",
                                            "f-stuck: always touched", "c-troubled: overlapping",
                                            "b-weak: tight", "e-untouched: never touched", "a-good: safe"));
    EXPECT_EQ(logs[1]["read_trouble"], "No such file or directory");
    EXPECT_EQ(logs[3]["bad_lines"], 1);
    EXPECT_EQ(logs[4]["worst_buttons"], Json::parse("[2]"));
    EXPECT_EQ(logs[6]["worst_buttons"], Json::parse("[]"));

    const std::vector<std::string> lines = SplitLines(Run("--summary " + files).output);
    EXPECT_THAT(lines[2], AllOf(StartsWith("no samples"), EndsWith("g-missing (No such file or directory)")));
    EXPECT_THAT(lines[7], AllOf(StartsWith("safe"), EndsWith("a-good")));
    EXPECT_EQ(Run("--summary d-empty g-missing").status, 1);
}

/// Takes out what stands between two texts, wherever they come.
std::string WithoutInside(std::string text, const std::string& start, const std::string& end) {
    for (std::size_t at = 0; (at = text.find(start, at)) != std::string::npos;) {
        at += start.size();
        text.erase(at, text.find(end, at) - at);
    }
    return text;
}

/// Compares an output with a file in tests/data/padreport, all of which somebody has read. Where a change of
/// the output is meant, a run with PADREPORT_EXPECT=new in the environment writes them anew, to be read as a
/// diff.
void ExpectAsInFile(const std::string& name, const std::string& output) {
    const std::string file = std::string(PADREPORT_EXPECTED "/") + name;
    const char* const expect = getenv("PADREPORT_EXPECT");
    if (expect != nullptr && expect == std::string("new")) {
        std::ofstream(file, std::ios::binary) << output;
    }
    EXPECT_EQ(output, read_file_throw(file)) << name;
}

TEST_F(PadreportProgram, PrintsWholeOutputsAsExpected) {
    std::string log =
        "36     8   118 *\nINFO: NOISE_TH 20\nINFO: LOWBASELINE -1\nUNKNOWN param 173 0\n"
        "SetButtonMask: START: BT1: f\nERROR: Diagnostics 31 - OUT OF RANGE\nStrange button count 4\n\n" +
        MakeTroubledBoard().MakeLog() +
        "INFO: Button Threshold 01 = 50\nINFO: Button Threshold 02 = 24\nINFO: NOISE_TH 30\n";
    for (const int ms : {0, 40, 80, 1'000, 1'040, 90'000, 90'040}) {
        log += SampleLine(ms, 30, false) + SampleLine(ms, 2, {1300, 1200, 4, 100}, true);
    }
    Write("before",
          log + "SubmitUsage: No such device (19)\n" + std::string(1100, 'x') + "\n\x01\n 2.480: BT3: 13");
    BoardModel other;
    other.noise[4] = 12;
    other.lift[1] = 66;
    other.lift[2] = 160;
    other.thresholds.erase(3);
    Write("after", other.MakeLog());
    Write("a, \"b\"", other.MakeLog());
    Write("stuck", SampleLine(0, 100, true) + SampleLine(2'000, 100, true));
    Write("empty", "");
    const std::pair<const char*, const char*> rows[] = {
        {"report", "before"},
        {"report_of_first_value", "--signal 1 after"},
        {"report_of_stuck_button", "stuck empty"},
        {"csv", "--csv before 'a, \"b\"'"},
        {"json", "--json before stuck"},
        {"comparison", "--compare before after"},
        {"comparison_json", "--compare --json before after"},
        {"summary", "--summary before after stuck empty missing"},
        {"summary_json", "--summary --json before after stuck empty missing"},
        {"page", "--html /dev/stdout before"},
        {"help", "--help"},
    };
    for (const auto& [name, arguments] : rows) {
        ExpectAsInFile(name, WithoutInside(WithoutInside(Run(arguments).output, "<style>", "</style>"),
                                           "<script", "</script>"));
    }
}

/// Runs the program with a terminal as its standard output.
class TerminalRun {
public:
    TerminalRun(const std::vector<const char*>& arguments, unsigned short columns, int input) {
        const winsize size{30, columns, 0, 0};
        m_process = forkpty(&m_terminal, nullptr, nullptr, &size);
        if (m_process == 0) {
            dup2(input, STDIN_FILENO);
            std::vector<char*> words = {const_cast<char*>(PADREPORT_PROGRAM)};
            for (const char* const argument : arguments) {
                words.push_back(const_cast<char*>(argument));
            }
            words.push_back(nullptr);
            execv(words[0], words.data());
            _exit(126);
        }
    }

    /// Reads until the program has shown a text; all that was shown since the last time.
    std::string ReadUntil(const std::string& text) {
        std::string shown;
        char buffer[4096];
        ssize_t length = 0;
        while (shown.find(text) == std::string::npos &&
               (length = read(m_terminal, buffer, sizeof buffer)) > 0) {
            shown.append(buffer, static_cast<std::size_t>(length));
        }
        return shown;
    }

    void Signal(int number) const { kill(m_process, number); }

    int Wait() const {
        int status = 0;
        waitpid(m_process, &status, 0);
        close(m_terminal);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

private:
    int m_terminal = -1;
    pid_t m_process = -1;
};

constexpr const char* NEVER_SHOWN = "\x01";

/// @return the longest line, without escape sequences
std::size_t GetWidth(const std::string& text) {
    std::size_t width = 0;
    for (const std::string& line : SplitLines(text)) {
        std::size_t length = 0;
        for (std::size_t i = 0; i < line.size() && line[i] != '\r'; ++i) {
            if (line[i] == '\x1B') {
                i = line.find('m', i);
            } else {
                ++length;
            }
        }
        width = std::max(width, length);
    }
    return width;
}

TEST_F(PadreportProgram, FitsTheTerminal) {
    std::string log;
    for (int i = 0; i < 4000; ++i) {
        const unsigned button = 1 + i % 11;
        const bool touched = i > 2000;
        log += SampleLine(std::int64_t{40} * i, button,
                          {touched ? 32'760 : 20'000, 20'000, i % 256, touched ? 12'000 : i % 100}, touched);
    }
    Write("log", log);
    const std::string plain = Run("log").output;
    EXPECT_LE(GetWidth(plain), 80);
    EXPECT_THAT(plain, Not(HasSubstr("\x1B")));

    const int null = open("/dev/null", O_RDONLY | O_CLOEXEC);
    setenv("TERM", "xterm", 1);
    for (const unsigned short columns : {40, 60, 80}) {
        unsetenv("NO_COLOR");
        TerminalRun coloured({"log"}, columns, null);
        const std::string text = coloured.ReadUntil(NEVER_SHOWN);
        EXPECT_EQ(coloured.Wait(), 0);
        EXPECT_THAT(text, HasSubstr("\x1B[32msafe"));
        EXPECT_LE(GetWidth(text), columns);
        setenv("NO_COLOR", "1", 1);
        TerminalRun colourless({"log"}, columns, null);
        std::string plainText = colourless.ReadUntil(NEVER_SHOWN);
        std::erase(plainText, '\r');
        ExpectAsInFile("terminal_" + std::to_string(columns), plainText);
        EXPECT_EQ(colourless.Wait(), 0);
        unsetenv("NO_COLOR");
    }
    close(null);
}

TEST_F(PadreportProgram, FollowsALogUntilItEndsAfterASignal) {
    int pipe[2];
    ASSERT_EQ(pipe2(pipe, O_CLOEXEC), 0);
    TerminalRun run({"--follow"}, 80, pipe[0]);
    close(pipe[0]);
    EXPECT_THAT(run.ReadUntil("No samples yet."), Not(HasSubstr("Verdict")));

    const std::string log = BoardModel().MakeLog();
    const std::string half = log.substr(0, log.find("\n61.520") + 1);
    write_all_throw(pipe[1], half.data(), half.size());
    EXPECT_THAT(run.ReadUntil("Buttons"), HasSubstr("touched now: BT4"));

    // What padtune still says after Ctrl-C is read, too.
    run.Signal(SIGINT);
    write_all_throw(pipe[1], log.data() + half.size(), log.size() - half.size());
    close(pipe[1]);
    EXPECT_THAT(run.ReadUntil(NEVER_SHOWN), HasSubstr("119.920 s, 12000 samples of 4 buttons"));
    EXPECT_EQ(run.Wait(), 0);

    // Into a file goes only the end.
    Write("log", log);
    const std::string followed = Run("--follow < log").output;
    EXPECT_THAT(followed, StartsWith("standard input\n1 run, "));
    EXPECT_EQ(Run("--follow < /dev/null").status, 1);
}

TEST_F(PadreportProgram, SaysWhatToTypeInstead) {
    Write("log", SampleLine(0, 0, false));
    const std::pair<const char*, const char*> rows[] = {
        {"--signal 0 log", "number from 1 to 4"},
        {"--signal 5 log", "number from 1 to 4"},
        {"--signal 1x log", "number from 1 to 4"},
        {"--signal= log", "number from 1 to 4"},
        {"log -s", "a number after it"},
        {"--colour log", "--colour: unknown"},
        {"-xs log", "-x: unknown"},
        {"--csv=x log", "--csv=x: unknown"},
        {"--csv --json log", "only one of"},
        {"--compare --summary log log", "only one of"},
        {"--csv --summary log", "--csv: "},
        {"--json --follow", "--json: "},
        {"--compare log", "two logs"},
        {"--compare log log log", "two logs"},
        {"--summary", "at least one log"},
        {"--follow log", "no log"},
    };
    for (const auto& [arguments, answer] : rows) {
        const Outcome outcome = Run(arguments + std::string(" < /dev/null"));
        EXPECT_EQ(outcome.status, 2) << arguments;
        EXPECT_EQ(outcome.output, "") << arguments;
        EXPECT_THAT(outcome.errors,
                    AllOf(StartsWith("padreport: "), HasSubstr(answer), MatchesRegex("[^\n]*\n")));
    }
    EXPECT_THAT(Run("--help --signal").output, StartsWith("Usage: padreport"));
    EXPECT_THAT(Run("--version").output, MatchesRegex("padreport [0-9.]+\n"));
    EXPECT_EQ(Run("< /dev/null").status, 1);
    EXPECT_EQ(Run("missing").status, 1);
    EXPECT_EQ(Run("missing log").status, 0);
    EXPECT_EQ(std::system(PADREPORT_PROGRAM " log >/dev/full 2>/dev/null") >> 8, 1);
}

}  // namespace

}  // namespace padreport
