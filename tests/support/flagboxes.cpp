#include "flagboxes.h"

#include <QStringList>

const std::vector<FlagBox> &allFlagBoxes()
{
    static const std::vector<FlagBox> s_all{{"reenumerate", 0x01},
                                            {"keepAspectRatio", 0x02},
                                            {"performanceMode", 0x04},
                                            {"audioSelector", 0x10}};
    return s_all;
}

QString boxesOf(int flags)
{
    QStringList names;
    for (const FlagBox &box : allFlagBoxes()) {
        if ((flags & box.bit) != 0) {
            names.append(box.name);
        }
    }
    return names.join(' ');
}
