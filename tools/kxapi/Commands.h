// The command table of kxapi and the helpers its commands share.
#pragma once

#include <json/json.h>

#include <map>
#include <string>
#include <vector>

namespace kxapi {

// Options (--name value, or --flag) and positional words of one command line.
class Args {
public:
    Args(const std::vector<std::string>& words, const std::vector<std::string>& flags);
    bool ok() const { return error_.empty(); }
    const std::string& error() const { return error_; }
    bool has(const std::string& name) const { return options_.count(name) != 0; }
    std::string get(const std::string& name, const std::string& fallback = "") const;
    const std::vector<std::string>& positional() const { return positional_; }
    bool help() const { return has("help"); }

private:
    std::map<std::string, std::string> options_;
    std::vector<std::string> positional_;
    std::string error_;
};

struct Command {
    const char* name;
    const char* usage;    // one line: arguments of the command
    const char* summary;  // one line: what it does
    // Names of options that take no value (--help is always one).
    std::vector<std::string> flags;
    int (*run)(const Args& args);
};

// Every command, in CommandTable.cpp.
const std::vector<Command>& Commands();

// Prints a JSON document on stdout.
void PrintJson(const Json::Value& value);
// Reports a failed library call on stderr: code, its text and the last error.
// Returns the exit status of a failure.
int Fail(const std::string& what, long code);
// Reports a usage error of a command on stderr; returns the exit status of one.
int UsageError(const std::string& command, const std::string& message);

}  // namespace kxapi
