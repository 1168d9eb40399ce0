// The command table of kxapi and the helpers its commands share.
#pragma once

#include <json/json.h>

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "KXServerBase.h"

class CCorvaneApi;

namespace kxapi {

// Options (--name value, or --flag) and positional words of one command line.
class Args {
public:
    Args(const std::vector<std::string>& words, const std::vector<std::string>& flags);
    bool ok() const { return error_.empty(); }
    const std::string& error() const { return error_; }
    bool has(const std::string& name) const { return options_.count(name) != 0; }
    std::string get(const std::string& name, const std::string& fallback = "") const;
    // Every value of an option given more than once, in order (get gives the last).
    std::vector<std::string> all(const std::string& name) const;
    const std::vector<std::string>& positional() const { return positional_; }
    bool help() const { return has("help"); }

private:
    std::map<std::string, std::string> options_;
    std::map<std::string, std::vector<std::string>> repeated_;
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
// A command line that shows the command at work, for its --help.
const char* ExampleOf(const std::string& name);

// Prints a JSON document on stdout.
void PrintJson(const Json::Value& value);
// Reports a failed library call on stderr: code, its text and the last error.
// Returns the exit status of a failure.
int Fail(const std::string& what, long code);
// Reports a usage error of a command on stderr; returns the exit status of one.
int UsageError(const std::string& command, const std::string& message);

// The server description of a section as KX_GetServerConfig reads it, with
// MobileShieldClientId (which only the platform client uses).
_init_Info_s ReadServer(const std::string& section);
// Initialises client with the description of section. 0, or the exit status
// after reporting the failure (and an incomplete section by name).
int OpenServer(KXServerBase& client, const std::string& section, const std::string& clientName);
// The platform client (also the BID service's) of --section, KXPlatform by
// default, initialised; 0 or the exit status.
int OpenClient(const Args& args, CCorvaneApi& api);

// Shows where the user acts: the text, and unless draw is false its QR code
// in Unicode half blocks (stderr).
void ShowQr(const std::string& what, const std::string& content, bool draw);

// Whether progress lines go out: only to a terminal, so that logs and pipes
// get the outcome alone.
bool ShowsProgress();

// A secret option NAME (password, sign-pwd): from --NAME-file FILE (its first
// line), else the environment variable env, else --NAME VALUE (which ps and
// the shell history see), else a prompt without echo when standard input is a
// terminal. Empty when none of them gives one.
std::string Secret(const Args& args, const std::string& name, const char* env);

// How a command polls: --interval-ms between polls, --timeout in seconds.
struct PollLimits {
    int intervalMs;
    int timeoutS;
};
// Reads both options over the command's defaults; false after a usage error
// (interval under 10 ms, timeout under 1 s, or no number), status set.
bool ReadPollLimits(const Args& args, const std::string& command, PollLimits& limits, int& status);
// Calls poll until it answers done (1) or failed (-1), 0 being not yet, with
// intervalMs between calls; no call starts after the time limit. Returns the
// last answer, so 0 when the limit ended it; polls counts the calls.
int Poll(const PollLimits& limits, const std::function<int()>& poll, int& polls);

}  // namespace kxapi
