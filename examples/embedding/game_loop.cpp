// A game loop whose creatures are scripts: C++ owns the loop and the world, a script says what each
// creature does in a frame. The creatures are tables, which both sides share.
#include <algorithm>
#include <iostream>
#include <string>
#include <vector>

#include "dovrel/dovrel.h"

namespace {

constexpr const char* kBehaviour = R"(
function wander(self, step)
    self["x"] += self["speed"] * step
    if self["x"] > 10
        self["speed"] = 0 - self["speed"]
        say(self["name"] + " turns back")
    end
end

function guard(self, step)
    native near = nearest(self)
    if near < 3 and self["calm"]
        self["calm"] = false
        say(self["name"] + " wakes up")
    end
end
)";

}  // namespace

int main() {
    dovrel::Interpreter interpreter;
    std::vector<dovrel::Value> creatures;

    interpreter.define("say", [](std::string_view text) { std::cout << text << '\n'; });
    // A native with a state of its own: all creatures there are.
    interpreter.define("nearest", [&creatures](const dovrel::Value& self) {
        double nearest = 1000;
        for (const dovrel::Value& other : creatures) {
            if (other == self) continue;
            const double distance = other["x"].as<double>() - self["x"].as<double>();
            nearest = std::min(nearest, distance < 0 ? -distance : distance);
        }
        return nearest;
    });
    interpreter.run(kBehaviour, "behaviour.dv");

    creatures.push_back(interpreter.tableOf({{"name", "the goat"},
                                             {"x", 0.0},
                                             {"speed", 4.0},
                                             {"act", interpreter.global("wander")}}));
    creatures.push_back(interpreter.tableOf({{"name", "the dog"},
                                             {"x", 9.0},
                                             {"calm", true},
                                             {"act", interpreter.global("guard")}}));

    for (int frame = 1; frame <= 8; ++frame) {
        for (const dovrel::Value& creature : creatures) creature["act"](creature, 0.5);
    }
    for (const dovrel::Value& creature : creatures) {
        std::cout << creature["name"].text() << " is at " << creature["x"].as<double>() << '\n';
    }
}
