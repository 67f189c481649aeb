#pragma once
// What a mistyped command line most likely meant, for the parser's refusal.
#include <string>

namespace CLI {
class App;
}

// After `app` refused a command line: "did you mean render?" for the first
// word it took for nothing that is a near miss of a subcommand (when none was
// given) or of an option of the command given ("did you mean --size?"); ""
// when no word is that close to any.
std::string NearMissHint(const CLI::App& app);
