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
    for (const BuiltinScene *scene = s_builtinScenes; scene->name; ++scene)
        if (std::strcmp(scene->name, name) == 0)
            return scene->text;
    return nullptr;
}

Scene loadScene(const std::string &name)
{
    if (name == "-")
        return parseScene(readAll(std::cin), "standard input", {});
    const size_t slash = name.rfind('/');
    if (isReadableFile(name)) {
        std::ifstream file(name);
        const std::string directory = slash == std::string::npos ? "." : name.substr(0, slash + 1);
        return parseScene(readAll(file), name.substr(slash == std::string::npos ? 0 : slash + 1),
                          directory);
    }
    const char *text = builtinScene(name.c_str());
    if (!text)
        throw SceneError("no scene '" + name + "'");
    return parseScene(text, name + ".scene", {});
}

} // namespace sim
