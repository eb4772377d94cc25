// A part of an application that brings the library along: both come and go together.
#include <optional>

#include "bench/endings/scene.h"

#define EXPORTED extern "C" __attribute__((visibility("default")))

namespace {

std::optional<endings::Scene> g_scene;  // ends the client with the module if nobody did before

}  // namespace

EXPORTED void EnterFlood(std::uint16_t server_port, long microseconds) {
  g_scene.emplace(server_port);
  g_scene->BothWays(endings::Scene::Time(microseconds));
}

EXPORTED void UnLink() {
  g_scene->UnLink();
}
