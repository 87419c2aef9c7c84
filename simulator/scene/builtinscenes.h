#pragma once

namespace sim {

// A scene that is part of the program; the table is generated from simulator/scenes/*.scene and
// ends with a row of null pointers.
struct BuiltinScene
{
    const char *name;
    const char *text;
};

extern const BuiltinScene s_builtinScenes[];

// The text of the scene with that name, or null.
const char *builtinScene(const char *name);

} // namespace sim
