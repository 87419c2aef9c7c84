#include "updatetexts.h"

#include "edid.h"

QString UpdateTexts::edidFailure(const EdidResult &edid)
{
    if (edid.status == EdidFormatError) {
        return tr("EDID data has incorrect format");
    }
    if (edid.status == EdidChecksumError) {
        return tr("EDID data has incorrect checksum");
    }
    // A good EDID has a block at least, so this is for a parser that changes.
    return edid.bytes.empty() ? tr("EDID data is empty") : QString();
}

QString UpdateTexts::foreignBootImage()
{
    return tr("Error: failed to verify microcode signature");
}

QString UpdateTexts::brokenBootImage()
{
    return tr("FX3 checksum error");
}

QString UpdateTexts::closedEdid()
{
    return tr("Can't open EDID file");
}
