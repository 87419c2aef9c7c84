#include "cli.h"
#include "command.h"
#include "inspection.h"
#include "output.h"
#include "packagecopy.h"
#include "ziparchive.h"

#include <QJsonArray>
#include <QStringList>

#include <CLI/CLI.hpp>

#include <memory>

namespace {

using Role = InspectedEntry::Role;

QString roleName(Role role)
{
    switch (role) {
    case Role::Bitstream:
        return QStringLiteral("bitstream");
    case Role::Microcode:
        return QStringLiteral("microcode");
    case Role::Sandbox:
        return QStringLiteral("sandbox");
    case Role::Edid:
        return QStringLiteral("EDID");
    case Role::ProductKey:
        return QStringLiteral("product key");
    default:
        break;
    }
    return QStringLiteral("not read");
}

QString hexText(quint32 number)
{
    return QStringLiteral("0x%1").arg(number, 8, 16, QLatin1Char('0'));
}

// An update of a device in repair begins with the sandbox, which such a package lacks.
bool holdsEdidOnly(const Package &package)
{
    return package.refusal.isEmpty() && !package.missing.isEmpty();
}

bool repairs(const Inspection &inspection)
{
    for (const InspectedEntry &entry : inspection.entries) {
        if (entry.role == Role::Sandbox) {
            // Of several entries with one name the first counts. What holds one beside an EDID and
            // no other image is refused.
            return inspection.package.refusal.isEmpty() && entry.failure.isEmpty();
        }
    }
    return false;
}

QStringList idTexts(const std::set<ProductId> &ids)
{
    QStringList texts;
    for (const ProductId &id : ids) {
        texts += QStringLiteral("%1:%2")
                     .arg(id.vendorId, 4, 16, QLatin1Char('0'))
                     .arg(id.productId, 4, 16, QLatin1Char('0'));
    }
    return texts;
}

// What is known of the image beyond its size.
QString detailsOf(const InspectedEntry &entry)
{
    QStringList details;
    if (entry.edidBlocks > 0) {
        details += Cli::tr("%1 blocks, sums right").arg(entry.edidBlocks);
    }
    if (entry.entryAddress) {
        details += Cli::tr("boot image of %1 sections, entry %2, sum right")
                       .arg(QString::number(entry.sectionCount), hexText(*entry.entryAddress));
        for (const InspectedEntry::Section &section : entry.sections) {
            details += Cli::tr("%1 bytes at %2")
                           .arg(QString::number(section.length), hexText(section.address));
        }
    }
    if (!entry.remark.isEmpty()) {
        details += Cli::tr("begins like a boot image: %1 (an update writes it all the same, and "
                           "the device decides)")
                       .arg(entry.remark);
    }
    return details.join(QStringLiteral("; "));
}

QString lineOf(const InspectedEntry &entry)
{
    const QString size = entry.size ? QString::number(*entry.size) : QStringLiteral("?");
    const QString crc = entry.crc ? hexText(*entry.crc) : QStringLiteral("?");
    QString line =
        Cli::tr("  %1: %2, %3 bytes, CRC %4").arg(roleName(entry.role), entry.name, size, crc);
    const QString details = detailsOf(entry);
    if (!details.isEmpty()) {
        line += QStringLiteral("; ") + details;
    }
    return line;
}

QJsonObject toJson(const InspectedEntry &entry)
{
    QJsonObject object{{"name", entry.name}, {"role", roleName(entry.role)}};
    if (entry.size) {
        object.insert("size", double(*entry.size));
    }
    if (entry.crc) {
        object.insert("crc", hexText(*entry.crc));
    }
    if (entry.edidBlocks > 0) {
        object.insert("blocks", entry.edidBlocks);
    }
    if (entry.entryAddress) {
        QJsonArray sections;
        for (const InspectedEntry::Section &section : entry.sections) {
            sections.append(QJsonObject{{"address", hexText(section.address)},
                                        {"length", double(section.length)}});
        }
        object.insert("sections", sections);
        object.insert("sectionCount", double(entry.sectionCount));
        object.insert("entryAddress", hexText(*entry.entryAddress));
    }
    if (!entry.failure.isEmpty()) {
        object.insert("failure", entry.failure);
    }
    if (!entry.remark.isEmpty()) {
        object.insert("remark", entry.remark);
    }
    return object;
}

QJsonObject toJson(const QString &fileName, const Inspection &inspection)
{
    const Package &package = inspection.package;
    QJsonArray entries;
    for (const InspectedEntry &entry : inspection.entries) {
        entries.append(toJson(entry));
    }
    QJsonObject object{{"file", fileName},
                       {"product", QString::fromStdString(package.productKey)},
                       {"entries", entries},
                       {"repairs", repairs(inspection)},
                       {"good", inspection.isGood()}};
    if (package.product) {
        object.insert("fits", QJsonArray::fromStringList(idTexts(package.product->compatibleIds)));
        object.insert("sandboxIds",
                      QJsonArray::fromStringList(idTexts(package.product->sandboxIds)));
    }
    if (!package.refusal.isEmpty()) {
        object.insert("refusal", package.refusal);
    }
    return object;
}

void show(Output &output, const QString &fileName, const Inspection &inspection)
{
    const Package &package = inspection.package;
    if (!package.productKey.empty()) {
        output.line(
            Cli::tr("%1: product %2").arg(fileName, QString::fromStdString(package.productKey)));
    }
    if (package.product) {
        const QString ids = idTexts(package.product->compatibleIds).join(QStringLiteral(", "));
        output.line(holdsEdidOnly(package)
                        ? Cli::tr("  fits %1; holds an EDID only and repairs no device").arg(ids)
                        : Cli::tr("  fits %1; named, any device of the vendor in soft repair and "
                                  "any in hard repair")
                              .arg(ids));
    }
    for (const InspectedEntry &entry : inspection.entries) {
        output.line(lineOf(entry));
        if (!entry.failure.isEmpty()) {
            output.error(QStringLiteral("%1: %2: %3").arg(fileName, entry.name, entry.failure));
        }
    }
    if (!package.refusal.isEmpty()) {
        output.error(QStringLiteral("%1: %2").arg(fileName, package.refusal));
    }
}

// As an update would see it, which makes a copy as well.
Inspection inspectFile(const std::string &file)
{
    const PackageCopy copy(file);
    if (!copy.failure().isEmpty()) {
        Inspection closed;
        closed.package.productKey.clear();
        closed.package.refusal = copy.failure();
        return closed;
    }
    Zip archive(copy.path());
    Inspection inspection = inspect_package(archive);
    if (!archive) {
        inspection.package.productKey.clear(); // what is no archive is no product's
    }
    return inspection;
}

ExitStatus inspect(Session &session, const std::vector<std::string> &files)
{
    Output &output = session.output;
    QJsonArray packages;
    std::vector<ExitStatus> statuses;
    for (const std::string &file : files) {
        const Inspection inspection = inspectFile(file);
        const QString fileName = QString::fromStdString(file);
        packages.append(toJson(fileName, inspection));
        show(output, fileName, inspection);
        statuses.push_back(inspection.isGood() ? ExitStatus::Done : ExitStatus::Failed);
    }
    const ExitStatus status = combined(statuses);
    output.object({{"packages", packages}, {"status", int(status)}});
    return status;
}

} // namespace

const Command s_packageCommand{
    "package",
    "Tell what firmware packages are, and what is wrong with them; touches no device",
    "  capso-cli package velk3.fw\n"
    "  capso-cli package --json *.fw",
    [](CLI::App &app) -> CommandRun {
        const auto files = std::make_shared<std::vector<std::string>>();
        app.add_option("FILE", *files, "The packages")->required();
        return [files](Session &session) { return inspect(session, *files); };
    },
};
