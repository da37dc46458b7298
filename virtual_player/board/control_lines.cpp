#include "virtual_player/board/control_lines.h"

#include <optional>
#include <stdexcept>
#include <vector>

#include "virtual_player/common/console.h"

namespace VirtualPlayer {

namespace {

std::optional<bool> ParseLevelOrAuto(const std::string& text) {
    if (text == "auto") {
        return std::nullopt;
    }
    return ParseLevel(text);
}

std::optional<unsigned> ParseCountsOrAuto(const std::string& text) {
    if (text == "auto") {
        return std::nullopt;
    }
    return ParseNumber(text);
}

SetupOddities ParseOddities(const std::vector<std::string>& words) {
    SetupOddities oddities;
    for (std::size_t i = 1; i < words.size(); ++i) {
        const std::string& word = words[i];
        const std::size_t equals = word.find('=');
        const std::string key = word.substr(0, equals);
        if (word == "silent") {
            oddities.silent = true;
        } else if (word == "normal" && words.size() == 2) {
            return {};
        } else if (equals == std::string::npos) {
            throw std::invalid_argument("not a setup word: " + word);
        } else {
            const std::uint32_t value = ParseNumber(word.substr(equals + 1));
            if (key == "count") {
                oddities.count = value;
            } else if (key == "format") {
                oddities.format = value;
            } else if (key == "marker") {
                oddities.marker = value;
            } else {
                oddities.slotValues[ParseNumber(key)] = value;
            }
        }
    }
    return oddities;
}

}  // namespace

std::string ExecuteLine(TouchBoardModel& board, const std::string& line) {
    const std::vector<std::string> words = SplitWords(line);
    const std::string command = words.empty() ? "" : words[0];
    const std::size_t arguments = words.empty() ? 0 : words.size() - 1;

    if ((command == "touch" || command == "release") && arguments == 1) {
        board.SetTouched(ParseNumber(words[1]), command == "touch");
    } else if (command == "gpio" && arguments == 2) {
        board.SetGpioLevel(ParseNumber(words[1]), ParseLevelOrAuto(words[2]));
    } else if (command == "noise" && arguments == 2) {
        board.SetNoise(ParseNumber(words[1]), ParseNumber(words[2]));
    } else if (command == "lift" && arguments == 2) {
        board.SetLift(ParseNumber(words[1]), ParseCountsOrAuto(words[2]));
    } else if (command == "rate" && arguments == 1) {
        board.SetRate(ParseNumber(words[1]));
    } else if (command == "setup" && arguments >= 1) {
        board.SetSetupOddities(ParseOddities(words));
    } else if ((command == "numbered" || command == "measured") && arguments == 0) {
        board.SetNumbered(command == "numbered");
    } else if (command == "late" && arguments == 1) {
        board.SetAnswerDelay(ParseMilliseconds(words[1]));
    } else if (command == "echo" && arguments == 1) {
        board.SetEchoing(ParseSwitch(words[1]));
    } else if ((command == "forget" || command == "remember") && arguments == 0) {
        board.SetForgetful(command == "forget");
    } else if (command == "send-setup" && arguments == 0) {
        board.SendSetup();
    } else if (command == "state" && arguments == 0) {
        return "state " + board.DescribeState();
    } else {
        throw std::invalid_argument("not understood: " + line);
    }
    return {};
}

}  // namespace VirtualPlayer
