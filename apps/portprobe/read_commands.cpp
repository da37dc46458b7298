#include "apps/portprobe/read_commands.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <exception>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "apps/portprobe/known_ports.h"
#include "apps/portprobe/standard_output.h"
#include "lib/hardware/board_identity.h"
#include "lib/hardware/external_control.h"
#include "lib/hardware/hid_snapshot.h"
#include "lib/platform/posix_helpers.h"
#include "lib/platform/string_operations.h"

namespace {

using ExternalControl::Port;

constexpr unsigned MASK_PINS = 32;

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
/// @param find  how the boards are found
/// @return whether there were ports and none failed
bool ForEachPort(const char* command, void (KnownPorts::*find)(),
                 const std::function<void(const KnownPort&)>& show) {
    bool hasTrouble = false;
    const auto reportTrouble = [&hasTrouble](const std::string& subject, const std::exception& failure) {
        std::fprintf(stderr, "portprobe: %s: %s\n", subject.c_str(), failure.what());
        hasTrouble = true;
    };

    KnownPorts ports;
    try {
        (ports.*find)();
    } catch (const ErrnoException& failure) {
        reportTrouble("boards", failure);
    }
    bool hasPorts = false;
    for (const KnownPort& port : ports.GetAll()) {
        try {
            show(port);
            hasPorts = true;
        } catch (const std::exception& failure) {
            if (!IsAbsence(failure)) {
                reportTrouble(port.name, failure);
            }
        }
    }
    if (!hasPorts) {
        std::fprintf(stderr, "portprobe: %s: no ports\n", command);
    }
    return hasPorts && !hasTrouble;
}

Row DescribePort(const KnownPort& port) {
    Row row = {port.name, "", "", "", port.node, port.location};
    if (port.descriptor) {
        row[1] = std::to_string(port.descriptor->count);
        row[2] = ExternalControl::Impl::ReadHidVersion(port.device);
        row[3] = ExternalControl::Impl::FormatBoardProperties(port.descriptor->modelCode,
                                                              port.descriptor->headerValue);
    } else {
        row[1] = std::to_string(Open(port)->GetPinCount());
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

}  // namespace

bool List() {
    std::vector<Row> rows = {HEADER};
    const bool isDone = ForEachPort("list", &KnownPorts::FindBoardsAndModels,
                                    [&rows](const KnownPort& port) { rows.push_back(DescribePort(port)); });
    if (rows.size() > 1) {
        PrintTable(rows);
        FlushStandardOutput();
    }
    return isDone;
}

void Get(const Request& request) {
    KnownPorts ports;
    const std::shared_ptr<Port> port = Open(ports.Find(request.names[0]));
    const unsigned count = port->GetPinCount();
    std::string text;
    for (unsigned pin = 0; pin < count; ++pin) {
        text += strprintf("pin %u", pin);
        // A pin can be both, on some ports with a line of its own for each.
        if (port->IsInput(pin)) {
            text += strprintf(" input level %u", port->GetInput(pin) ? 1U : 0U);
        }
        if (port->IsOutput(pin)) {
            // Not every port can tell a single output.
            text += pin < MASK_PINS ? strprintf(" output level %u", port->ReadAllOutputs() >> pin & 1)
                                    : " output level unknown";
        }
        text += '\n';
    }
    std::fputs(text.c_str(), stdout);
    FlushStandardOutput();
}
