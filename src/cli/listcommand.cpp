#include "cli.h"
#include "command.h"
#include "devices.h"
#include "output.h"

#include <QJsonArray>
#include <QStringList>

#include <CLI/CLI.hpp>

namespace {

constexpr int s_columns = 6;

using Row = std::array<QString, s_columns>;

QString orDash(const QString &text)
{
    return text.isEmpty() ? QStringLiteral("-") : text;
}

Row rowOf(const ListedDevice &device)
{
    const DeviceDescription &description = device.description;
    return {orDash(printable(description.productName)),
            orDash(printable(description.serialNumber)),
            orDash(printable(description.versionString)),
            device.usable ? modeName(device) : QStringLiteral("-"),
            idText(device),
            device.portPath()};
}

QString lineOf(const Row &row, const std::array<int, s_columns> &widths)
{
    QString line;
    for (std::size_t column = 0; column + 1 < row.size(); ++column) {
        line += row[column].leftJustified(widths[column]) + QStringLiteral("  ");
    }
    return line + row.back();
}

void listAsText(Output &output, const Devices &devices)
{
    std::vector<Row> rows;
    std::array<int, s_columns> widths{};
    for (const ListedDevice &device : devices.all) {
        rows.push_back(rowOf(device));
        for (std::size_t column = 0; column < widths.size(); ++column) {
            widths[column] = std::max(widths[column], int(rows.back()[column].size()));
        }
    }
    for (std::size_t i = 0; i < rows.size(); ++i) {
        const ListedDevice &device = devices.all[i];
        const QString reason =
            device.usable ? QString() : QStringLiteral("  (%1)").arg(reasonOf(device));
        output.line(lineOf(rows[i], widths) + reason);
    }
}

ExitStatus list(Session &session)
{
    Output &output = session.output;
    const Devices devices = findDevices(session);
    QJsonArray array;
    for (const ListedDevice &device : devices.all) {
        array.append(toJson(device));
    }
    QJsonObject object{{"devices", array}};
    if (!devices.scanErrors.empty()) {
        QJsonArray errors;
        for (const QString &text : devices.scanErrors) {
            errors.append(text);
        }
        object.insert("errors", errors);
    }
    output.object(object);
    listAsText(output, devices);
    for (const QString &text : devices.scanErrors) {
        output.error(text);
    }
    if (devices.all.empty()) {
        output.note(Cli::tr("no capture devices found"));
    }
    return ExitStatus::Done;
}

} // namespace

const Command s_listCommand{
    "list",
    "List the capture devices, one a line",
    "  capso-cli list\n"
    "  capso-cli list --json | jq -r '.devices[].serial'",
    [](CLI::App & /*arguments*/) -> CommandRun { return list; },
};
