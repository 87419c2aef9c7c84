#include "builtinscenes.h"
#include "scene.h"

#include <cstring>
#include <fstream>
#include <iostream>
#include <iterator>
#include <sys/stat.h>

namespace sim {
namespace {

std::string readAll(std::istream &stream)
{
    return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
}

bool isReadableFile(const std::string &name)
{
    struct stat info = {};
    return stat(name.c_str(), &info) == 0 && !S_ISDIR(info.st_mode) &&
           std::ifstream(name).is_open();
}

} // namespace

const char *builtinScene(const char *name)
{
    for (const BuiltinScene *scene = s_builtinScenes; scene->name; ++scene) {
        if (std::strcmp(scene->name, name) == 0) {
            return scene->text;
        }
    }
    return nullptr;
}

Scene loadScene(const std::string &name)
{
    if (name == "-") {
        return parseScene(readAll(std::cin), "standard input", {});
    }
    // Built-in names win, so that they mean the same everywhere; a file of such a name is given as
    // ./NAME.
    if (const char *text = builtinScene(name.c_str())) {
        return parseScene(text, name + ".scene", {});
    }
    if (!isReadableFile(name)) {
        throw SceneError("no scene '" + name + "'");
    }
    std::ifstream file(name);
    const size_t slash = name.rfind('/');
    const bool hasFolder = slash != std::string::npos;
    return parseScene(readAll(file), hasFolder ? name.substr(slash + 1) : name,
                      hasFolder ? name.substr(0, slash + 1) : ".");
}

} // namespace sim
