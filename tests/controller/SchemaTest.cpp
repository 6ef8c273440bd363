// The objects of --json, compared with the schema that other programs rely on.

#include <algorithm>
#include <fstream>
#include <regex>
#include <set>
#include <sstream>
#include <string>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "Command.h"
#include "CommandLine.h"
#include "HexText.h"
#include "Output.h"
#include "TempDir.h"

namespace {

using nlohmann::json;

bool Fits(const json& schema, const json& rule, const json& value);

bool HasMembers(const json& schema, const json& rule, const json& value)
{
    const auto isThere = [&](const json& key) { return value.contains(key.get<std::string>()); };
    const auto fits = [&](const auto& member) {
        const json& known = rule["properties"];
        return known.contains(member.key()) && Fits(schema, known[member.key()], member.value());
    };
    const auto members = value.items();
    return std::all_of(rule["required"].begin(), rule["required"].end(), isThere) &&
           std::all_of(members.begin(), members.end(), fits);
}

// As much of JSON Schema as this schema uses.
bool Fits(const json& schema, const json& rule, const json& value)
{
    if (rule.contains("$ref"))
        return Fits(schema, schema[json::json_pointer(rule["$ref"].get<std::string>().substr(1))],
                    value);
    if (rule.contains("const"))
        return rule["const"] == value;
    if (rule.contains("enum"))
        return std::count(rule["enum"].begin(), rule["enum"].end(), value) == 1;
    if (rule["type"] == "integer")
        return value.is_number_unsigned() && value <= rule.value("maximum", value);
    if (rule["type"] == "string")
        return value.is_string() && std::regex_match(value.get<std::string>(),
                                                     std::regex(rule.value("pattern", "[^]*")));
    if (rule["type"] == "array")
        return value.is_array() && std::all_of(value.begin(), value.end(), [&](const json& each) {
                   return Fits(schema, rule["items"], each);
               });
    return value.is_object() && HasMembers(schema, rule, value);
}

// What the commands on files and the lines of a unit make the tool print.
std::string Printed()
{
    const TempDir directory;
    const std::string good = directory.Write("a.hex", HexText(Firmware(0x2000), 16, "\n"));
    const std::string bad = directory.Write("b.hex", ":0100000001FF\n:00000001FF\n");
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    RunCommandLine({"check", good, bad, "--json"});
    RunCommandLine({"diff", good, directory.Write("c.bin", "\x04\x90Z"), "--json"});
    RunCommandLine({"prepare", good, directory.Path("."), "--json"});
    RunCommandLine({"check", directory.Path("csp_prog.rlg"), "--json"});
    Output output(Output::Form::Json);
    output.ShowLine("Sending Data 40%", false, {});
    output.ShowLine("CSP \x85", true, kWritingPhase);
    output.ShowBusy({kWritingPhase, 7});
    Invocation invocation;
    invocation.json = true;
    Outcome outcome{Status::Failed, "Update File is not exsit.", "V7"};
    outcome.note = "f: not verified";
    Finish(invocation, outcome);
    testing::internal::GetCapturedStderr();
    return testing::internal::GetCapturedStdout();
}

}  // namespace

TEST(Json, FollowsItsSchema)
{
    const json schema = json::parse(std::ifstream(DIAG_SOURCE "/docs/diagctl.schema.json"));
    std::set<std::string> unseen = {"found"};  // what upgrade alone prints
    for (const json& each : schema["oneOf"])
        unseen.insert(each["$ref"].get<std::string>().substr(8));
    std::istringstream lines(Printed());
    for (std::string line; std::getline(lines, line);) {
        const json object = json::parse(line);
        const std::string event = object["event"];
        EXPECT_TRUE(Fits(schema, schema["$defs"].value(event, json::object()), object)) << line;
        unseen.erase(event);
    }
    EXPECT_EQ(unseen, std::set<std::string>{"found"});
}
