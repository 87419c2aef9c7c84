#pragma once

#include "deviceconfig.h"
#include "fault.h"
#include "words.h"

#include <string>
#include <vector>

namespace sim {

struct SceneDevice
{
    DeviceConfig config;
    std::vector<Fault> faults;
};

// The devices of a scene, their faults, and how strictly they are watched.
struct Scene
{
    std::string title;
    bool strict = true;
    bool fullTranscript = false;
    bool allowDenial = false;
    std::vector<SceneDevice> devices;

    // Whether something in the scene denies opening, for which root must give up a capability.
    bool deniesAccess() const;
};

// Parses the text of a scene. fileName is quoted in errors, directory is where its files are.
// Throws SceneError with a text of the form "several.scene:12: unknown word 'foo'".
Scene parseScene(const std::string &text, const std::string &fileName,
                 const std::string &directory);

// Finds a scene by the name given on the command line: a file, "-" for standard input, or a
// built-in one.
Scene loadScene(const std::string &name);

} // namespace sim
