#include "app/CommandLineHints.h"

#include "util/Text.h"

#include <CLI/CLI.hpp>

#include <vector>

namespace {

// The long option names `command` takes, without their dashes; the program's
// own options are taken after any subcommand too.
void AddOptionNames(const CLI::App& command, std::vector<std::string>& names)
{
    for (const CLI::Option* opt : command.get_options())
        for (const std::string& name : opt->get_lnames()) names.push_back(name);
}

}  // namespace

std::string NearMissHint(const CLI::App& app)
{
    const std::vector<CLI::App*> given = app.get_subcommands();
    std::vector<std::string> options, subcommands;
    AddOptionNames(app, options);
    for (const CLI::App* sub : given) AddOptionNames(*sub, options);
    if (given.empty())
        for (const CLI::App* sub : app.get_subcommands([](const CLI::App*) { return true; }))
            subcommands.push_back(sub->get_name());

    for (const std::string& word : app.remaining(true)) {
        const std::size_t dashes = word.find_first_not_of('-');
        if (dashes == std::string::npos) continue;
        if (dashes == 0) {
            const std::string near = NearestName(word, subcommands);
            if (!near.empty()) return "did you mean " + near + "?";
            continue;
        }
        const std::string name = word.substr(dashes, word.find('=') - dashes);
        const std::string near = NearestName(name, options);
        if (!near.empty()) return "did you mean --" + near + "?";
    }
    return {};
}
