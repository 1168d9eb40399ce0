// The files of a request: the parts of a multipart upload and the target of a
// download, read from the caller's arguments before anything is sent.
#include <string>
#include <vector>

#include "KXHttpParts.h"
#include "os/KXOs.h"

namespace {

// Keys of the body whose values name files of a directory upload.
const char* const kFileKeys[] = {"res_file", "ps_file"};

// A bare name inside the directory: a server's reply chooses these, so none
// may reach outside it.
bool IsPlainName(const std::string& name) {
    return !name.empty() && name != "." && name != ".." &&
           name.find_first_of("/\\") == std::string::npos && name.find('\0') == std::string::npos;
}

int AddFile(const std::string& field, const std::string& path, const std::string& fileName,
            std::vector<KXWirePart>& parts, std::string& detail) {
    if (kxos::KindOf(path) != kxos::PathKind::File || !kxos::File::OpenRead(path).ok()) {
        detail = "cannot read " + path;
        return KX_ERR_HTTP_LOCAL_FILE;
    }
    KXWirePart part;
    part.name = field;
    part.filePath = path;
    part.fileName = fileName;
    parts.push_back(std::move(part));
    return KX_OK;
}

// The names a file key holds: a string, or an array of strings.
std::vector<std::string> NamesOf(const Json::Value& value) {
    std::vector<std::string> names;
    if (value.isString()) names.push_back(kxjson::String(value));
    if (value.isArray()) {
        for (Json::ArrayIndex i = 0; i < value.size(); ++i)
            if (value[i].isString()) names.push_back(kxjson::String(value[i]));
    }
    return names;
}

}  // namespace

int kxhttp::MultipartParts(const std::string& body, const char* filePath,
                           std::vector<KXWirePart>& parts, std::string& detail) {
    Json::Value fields;
    if (!kxjson::Parse(body, fields) || !fields.isObject()) {
        detail = "multipart fields are no JSON object";
        return KX_ERR_INVALID_VALUE;
    }
    for (const std::string& name : fields.getMemberNames()) {
        const Json::Value& value = fields[name];
        std::string text = value.isString() ? kxjson::String(value) : kxjson::Write(value);
        if (!value.isString() && !text.empty() && text.back() == '\n') text.pop_back();
        parts.push_back(KXWirePart{name, text, std::string(), std::string()});
    }
    // No path at all sends the fields alone; an empty one names no file.
    if (filePath == nullptr) return KX_OK;
    const std::string path = filePath;
    if (kxos::KindOf(path) != kxos::PathKind::Directory)
        return AddFile("file", path, IWK_GetBaseName(filePath), parts, detail);
    for (const char* key : kFileKeys) {
        for (const std::string& name : NamesOf(kxjson::Member(fields, key))) {
            if (name.empty()) continue;
            if (!IsPlainName(name)) {
                detail = std::string(key) + " names no file of the directory: " + name;
                return KX_ERR_INVALID_VALUE;
            }
            const int code = AddFile(key, path + "/" + name, name, parts, detail);
            if (code != KX_OK) return code;
        }
    }
    return KX_OK;
}

int kxhttp::DownloadTarget(const std::string& params, std::string& path, std::string& detail) {
    Json::Value root;
    if (kxjson::Parse(params, root)) path = kxjson::Text(root, "fileName");
    if (path.empty()) {
        detail = "download without a fileName";
        return KX_ERR_INVALID_VALUE;
    }
    if (kxos::KindOf(path) == kxos::PathKind::Directory) {
        detail = "download target is a directory: " + path;
        return KX_ERR_HTTP_LOCAL_FILE;
    }
    return KX_OK;
}
