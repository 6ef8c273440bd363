#pragma once

#include "Csp.h"
#include "Patcher.h"

#include <cstdint>
#include <string>
#include <variant>
#include <vector>

// The command line of simpiano.
struct Options {
    std::string root;
    bool help = false;

    uint32_t size = 0x400000;
    std::string loadFile;  // FILE or FILE@ADDR
    std::string saveFile;

    bool noPatcher = false;
    bool noRcServer = false;
    int patcherLate = 0;  // seconds
    int rcServerLate = 0;

    CspFaults csp;
    LinkFaults link;

    // Parses the arguments. Returns a complaint about the first wrong one, or nothing.
    std::string Parse(const std::vector<std::string>& arguments);
    static std::string HelpText();

private:
    // Where an option's argument is stored, which also determines its form: a flag (no argument), a
    // decimal count, a hexadecimal number (the last one counts, or all), a word.
    using Target = std::variant<bool*, int*, uint32_t*, std::optional<uint32_t>*,
                                std::vector<uint32_t>*, std::string*>;
    struct Option {
        const char* name;
        const char* argument;
        const char* help;
        Target target;
        const char* heading = nullptr;  // of the help text, above the option
    };
    std::vector<Option> Table();
};

bool ParseHex(const std::string& text, uint32_t* value);
