#include "apps/portprobe/read_commands.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <exception>
#include <functional>
#include <numeric>
#include <string>
#include <vector>

#include "apps/portprobe/known_ports.h"
#include "apps/portprobe/pins.h"
#include "lib/hardware/open_port.h"
#include "lib/platform/errno_exception.h"
#include "lib/platform/standard_output.h"
#include "lib/platform/string_operations.h"

namespace {

using Row = std::array<std::string, 6>;
const Row HEADER = {"NAME", "PINS", "VERSION", "PROPERTIES", "NODE", "LOCATION"};
constexpr const char* NO_TEXT = "-";
constexpr std::size_t COLUMN_GAP = 2;

/// Whether a port could not be opened because what it stands for is not there: that is no trouble.
bool IsAbsence(const std::exception& failure) {
    const auto* const error = dynamic_cast<const ErrnoException*>(&failure);
    return error != nullptr && error->GetErrno() == ENOENT;
}

/// Shows every port that there is. One that fails is reported to standard error, and the others are shown.
/// @param list  how the ports are found
/// @return whether there were ports and none failed
bool ForEachPort(const char* command, std::vector<ListedPort> (*list)(),
                 const std::function<void(const ListedPort&)>& show) {
    bool hasTrouble = false;
    const auto reportTrouble = [&hasTrouble](const std::string& subject, const std::exception& failure) {
        std::fprintf(stderr, "portprobe: %s: %s\n", subject.c_str(), failure.what());
        hasTrouble = true;
    };

    std::vector<ListedPort> ports;
    try {
        ports = list();
    } catch (const ErrnoException& failure) {
        reportTrouble("boards", failure);
        ports.emplace_back();  // the player's own lines
    }
    bool hasPorts = false;
    for (const ListedPort& port : ports) {
        try {
            show(port);
            hasPorts = true;
        } catch (const std::exception& failure) {
            if (!IsAbsence(failure)) {
                reportTrouble(port.GetName(), failure);
            }
        }
    }
    if (!hasPorts) {
        std::fprintf(stderr, "portprobe: %s: no ports\n", command);
    }
    return hasPorts && !hasTrouble;
}

Row DescribePort(const ListedPort& port) {
    Row row = {port.GetName(), "", "", "", port.GetNode(), port.GetLocation()};
    if (port.GetKind() == ExternalControl::PortKind::LINES) {
        row[1] = std::to_string(Open(port)->GetPinCount());
    } else {
        row[1] = std::to_string(port.GetPinCount());
        row[2] = port.ReadVersion();
        row[3] = port.GetProperties();
    }
    std::replace(row.begin(), row.end(), std::string(), std::string(NO_TEXT));
    return row;
}

void PrintTable(const std::vector<Row>& rows) {
    std::array<std::size_t, HEADER.size()> widths{};
    for (const Row& row : rows) {
        for (std::size_t column = 0; column < row.size(); ++column) {
            widths[column] = std::max(widths[column], row[column].size());
        }
    }
    for (const Row& row : rows) {
        std::string line;
        for (std::size_t column = 0; column < row.size() - 1; ++column) {
            line += row[column] + std::string(widths[column] - row[column].size() + COLUMN_GAP, ' ');
        }
        std::puts((line + row.back()).c_str());
    }
}

/// The bare value for a script: of a pin that goes both ways, what comes in.
std::string FormatNumber(const Pin& pin) {
    const std::optional<std::uint32_t> value = pin.input ? pin.input : pin.output;
    return value ? std::to_string(*value) : NO_TEXT;
}

}  // namespace

bool List() {
    std::vector<Row> rows = {HEADER};
    const bool isDone = ForEachPort("list", ExternalControl::ListPortsWithModels,
                                    [&rows](const ListedPort& port) { rows.push_back(DescribePort(port)); });
    if (rows.size() > 1) {
        PrintTable(rows);
        FlushStandardOutput();
    }
    return isDone;
}

bool Info() {
    const bool isDone = ForEachPort("info", ExternalControl::ListPorts, [](const ListedPort& port) {
        const Pins pins = FetchPins(port);
        std::printf("%s - %zu %s\n", port.GetName().c_str(), pins.size(),
                    port.HasValues() ? "values" : "pins");
        for (unsigned number = 0; number < pins.size(); ++number) {
            std::printf("    %s\n", FormatPin(port, number, pins[number]).c_str());
        }
    });
    FlushStandardOutput();
    return isDone;
}

void Get(const Request& request) {
    const ListedPort port = FindKnownPort(request.names[0]);
    const Pins pins = FetchPins(port);
    std::vector<unsigned> numbers = request.pins;
    if (numbers.empty()) {
        numbers.resize(pins.size());
        std::iota(numbers.begin(), numbers.end(), 0U);
    }
    std::string text;
    for (const unsigned number : numbers) {
        const Pin& pin = request.pins.empty() ? pins[number] : GetPin(port, pins, number);
        text += request.isNumeric ? FormatNumber(pin) + ' ' : FormatPin(port, number, pin) + '\n';
    }
    if (request.isNumeric && !text.empty()) {
        text.back() = '\n';
    }
    std::fputs(text.c_str(), stdout);
    FlushStandardOutput();
}
