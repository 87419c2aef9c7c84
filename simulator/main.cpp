#include "builtinscenes.h"
#include "commandline.h"
#include "controlsocket.h"
#include "keptstate.h"
#include "scene.h"
#include "simulation.h"

#include <cstdio>
#include <exception>

namespace {

constexpr int s_failure = 1;
constexpr int s_badUsage = 2;

int listScenes()
{
    for (const sim::BuiltinScene *scene = sim::s_builtinScenes; scene->name; ++scene) {
        std::printf("%-16s %s\n", scene->name, sim::loadScene(scene->name).title.c_str());
    }
    return 0;
}

int showScene(const std::string &name)
{
    const char *text = sim::builtinScene(name.c_str());
    if (!text) {
        throw sim::SceneError("no built-in scene '" + name + "'");
    }
    std::fputs(text, stdout);
    return 0;
}

int run(const sim::CommandLine &line)
{
    using Action = sim::CommandLine::Action;
    switch (line.action) {
    case Action::ListScenes:
        return listScenes();
    case Action::ShowScene:
        return showScene(line.scene);
    case Action::CheckScene:
        sim::loadScene(line.scene);
        return 0;
    case Action::Control:
        return sim::sendControlCommand(line.scene, line.controlCommand);
    case Action::Run:
        break;
    }
    sim::Scene scene = sim::loadScene(line.scene);
    if (!line.stateDirectory.empty()) {
        sim::restoreState(scene, line.stateDirectory);
    }
    return sim::runSimulation(scene, line.program, {line.verbose, line.stateDirectory});
}

} // namespace

int main(int argc, char **argv)
{
    try {
        return run(sim::parseCommandLine(argc, argv));
    } catch (const sim::UsageError &error) {
        std::fprintf(stderr, "capso-sim: %s\n%s", error.what(), sim::usageText());
        return s_badUsage;
    } catch (const sim::SceneError &error) {
        std::fprintf(stderr, "%s\n", error.what());
        return s_badUsage;
    } catch (const std::exception &error) {
        std::fprintf(stderr, "capso-sim: %s\n", error.what());
        return s_failure;
    }
}
