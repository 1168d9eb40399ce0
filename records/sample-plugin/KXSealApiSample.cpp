// A stand-in for the seal software's local plug-in, for tests and the demo:
// it appends each sign record to a JSON-lines file, one line
// {"recordType":N,"record":RECORD} per record, the record's bytes
// as they came. The file is $KX_SEAL_RECORDS_FILE, else
// $XDG_STATE_HOME/kxserverapi/sign-records.jsonl (else under ~/.local/state).
#include <json/json.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#define KX_PLUGIN_EXPORT extern "C" __attribute__((visibility("default")))

namespace {

// Codes of this plug-in; none has a standard text in the library.
const long kNotAnObject = 20001;
const long kCannotStore = 20002;

thread_local std::string t_lastError;

std::string RecordsFile() {
    const char* file = std::getenv("KX_SEAL_RECORDS_FILE");
    if (file != nullptr && file[0] != '\0') return file;
    const char* state = std::getenv("XDG_STATE_HOME");
    if (state != nullptr && state[0] == '/')
        return std::string(state) + "/kxserverapi/sign-records.jsonl";
    const char* home = std::getenv("HOME");
    return std::string(home != nullptr ? home : ".") +
           "/.local/state/kxserverapi/sign-records.jsonl";
}

long Fail(long code, std::string text) {
    t_lastError = std::move(text);
    return code;
}

bool IsObject(const std::string& text) {
    try {
        Json::CharReaderBuilder builder;
        const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
        Json::Value root;
        return reader->parse(text.data(), text.data() + text.size(), &root, nullptr) &&
               root.isObject();
    } catch (...) {
        return false;
    }
}

long Save(int recordType, const char* json) {
    std::string record = json != nullptr ? json : "";
    while (!record.empty() && (record.back() == '\n' || record.back() == '\r')) record.pop_back();
    if (!IsObject(record)) return Fail(kNotAnObject, "the sign record is no JSON object");
    const std::string line =
        "{\"recordType\":" + std::to_string(recordType) + ",\"record\":" + record + "}\n";
    const std::string path = RecordsFile();
    FILE* out = std::fopen(path.c_str(), "a");
    if (out == nullptr)
        return Fail(kCannotStore, "cannot open " + path + ": " + std::strerror(errno));
    const bool written = std::fwrite(line.data(), 1, line.size(), out) == line.size();
    if (std::fclose(out) != 0 || !written) return Fail(kCannotStore, "cannot write " + path);
    return 0;
}

}  // namespace

KX_PLUGIN_EXPORT long SaveSignRecordEx(int recordType, const char* json) {
    try {
        return Save(recordType, json);
    } catch (...) {
        return Fail(kCannotStore, "out of memory");
    }
}

#ifndef KX_SAMPLE_WITHOUT_LAST_ERROR
// With a null buffer: the text's length in *length. With a buffer of
// *length + 1 bytes: the text, terminated.
KX_PLUGIN_EXPORT long KXGetLastError(char* buffer, int* length) {
    if (length == nullptr) return -1;
    const int size = static_cast<int>(t_lastError.size());
    if (buffer == nullptr) {
        *length = size;
        return 0;
    }
    const int n = *length < size ? (*length > 0 ? *length : 0) : size;
    std::memcpy(buffer, t_lastError.data(), static_cast<size_t>(n));
    buffer[n] = '\0';
    *length = n;
    return 0;
}
#endif
