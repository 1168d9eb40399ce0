// kxapi [--config FILE] COMMAND [options]: the library from the command line.
#include <cstdio>
#include <cstdlib>
#include <iostream>

#include "Commands.h"
#include "KXServerApi.h"
#include "KXUtils.h"

namespace kxapi {

Args::Args(const std::vector<std::string>& words, const std::vector<std::string>& flags) {
    for (size_t i = 0; i < words.size(); ++i) {
        const std::string& word = words[i];
        if (word.size() > 2 && word.compare(0, 2, "--") == 0) {
            std::string name = word.substr(2);
            bool isFlag = name == "help";
            for (const auto& f : flags) isFlag = isFlag || f == name;
            if (isFlag) {
                options_[name] = "1";
            } else if (i + 1 < words.size()) {
                options_[name] = words[++i];
                repeated_[name].push_back(words[i]);
            } else {
                error_ = "option --" + name + " needs a value";
            }
        } else {
            positional_.push_back(word);
        }
    }
}

std::string Args::get(const std::string& name, const std::string& fallback) const {
    auto it = options_.find(name);
    return it == options_.end() ? fallback : it->second;
}

std::vector<std::string> Args::all(const std::string& name) const {
    auto it = repeated_.find(name);
    return it == repeated_.end() ? std::vector<std::string>() : it->second;
}

void PrintJson(const Json::Value& value) {
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "  ";
    builder["emitUTF8"] = true;
    std::cout << Json::writeString(builder, value) << std::endl;
}

int Fail(const std::string& what, long code) {
    std::string text;
    if (code >= 300 && code <= 599) {
        text = "HTTP status";
    } else if (IWK_IsUnknownError(code)) {
        text = "the server's own code";
    } else {
        text = IWK_GetErrorMsg(code);
    }
    std::cerr << "kxapi: " << what << " failed: code " << code << " (" << text << ")\n";
    long lastCode = 0;
    std::string lastText;
    if (IWK_GetLastError(lastCode, lastText)) {
        std::cerr << "kxapi: last error " << lastCode << ": " << lastText << "\n";
    }
    return 1;
}

int UsageError(const std::string& command, const std::string& message) {
    std::cerr << "kxapi " << command << ": " << message << "\n";
    for (const Command& c : Commands()) {
        if (command == c.name) std::cerr << "usage: kxapi " << c.name << " " << c.usage << "\n";
    }
    return 2;
}

}  // namespace kxapi

namespace {

void Usage(std::ostream& out) {
    out << "usage: kxapi [--config FILE] COMMAND [options] | kxapi --version\n"
           "  --config FILE   the configuration store to use (else $KX_CONFIG_FILE or the\n"
           "                  per-user default)\n\ncommands:\n";
    for (const kxapi::Command& c : kxapi::Commands()) {
        out << "  " << c.name << " " << c.usage << "\n      " << c.summary << "\n";
    }
    out << "\n'kxapi COMMAND --help' tells more. Results are JSON on stdout; on failure the\n"
           "result code, its text and the last error go to stderr and the exit status is 1.\n";
}

}  // namespace

int main(int argc, char** argv) {
    std::vector<std::string> words(argv + 1, argv + argc);
    if (words.size() >= 2 && words[0] == "--config") {
        setenv("KX_CONFIG_FILE", words[1].c_str(), 1);
        words.erase(words.begin(), words.begin() + 2);
    }
    if (!words.empty() && words[0] == "--version") {
        std::cout << "kxapi " << KX_GetVersion() << "\n";
        return 0;
    }
    if (words.empty() || words[0] == "--help" || words[0] == "-h" || words[0] == "help") {
        Usage(words.empty() ? std::cerr : std::cout);
        return words.empty() ? 2 : 0;
    }
    // Commands of two words ("config get") are looked up by their longest match.
    const kxapi::Command* found = nullptr;
    size_t used = 0;
    for (const kxapi::Command& c : kxapi::Commands()) {
        const std::string name = c.name;
        size_t space = name.find(' ');
        if (space == std::string::npos) {
            if (words[0] == name && used < 1) {
                found = &c;
                used = 1;
            }
        } else if (words.size() >= 2 && words[0] == name.substr(0, space) &&
                   words[1] == name.substr(space + 1)) {
            found = &c;
            used = 2;
        }
    }
    if (found == nullptr) {
        std::cerr << "kxapi: unknown command '" << words[0] << "'\n";
        Usage(std::cerr);
        return 2;
    }
    std::vector<std::string> rest(words.begin() + static_cast<long>(used), words.end());
    kxapi::Args args(rest, found->flags);
    if (args.help()) {
        std::cout << "usage: kxapi " << found->name << " " << found->usage << "\n"
                  << found->summary << "\n";
        if (const char* example = kxapi::ExampleOf(found->name))
            std::cout << "example: " << example << "\n";
        if (std::string(found->usage).find("password") != std::string::npos)
            std::cout << "secrets: prefer --password-file F (first line), $KXAPI_PASSWORD, or the\n"
                         "prompt without echo on a terminal; --password P is seen by ps and kept\n"
                         "in the shell history (likewise --sign-pwd-file, $KXAPI_SIGN_PWD).\n";
        return 0;
    }
    if (!args.ok()) return kxapi::UsageError(found->name, args.error());
    return found->run(args);
}
