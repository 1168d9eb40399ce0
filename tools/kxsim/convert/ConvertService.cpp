// The seal server's document conversion: an uploaded document comes back as
// a real PDF with its text laid out on pages. A PostScript document that
// names files with "%%IncludeFile: name" lines is answered 4000 until they
// arrive with it at ps_conv.php beside the conversion path.
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <sstream>
#include <vector>

#include "KXUtils.h"
#include "SimServer.h"

namespace kxsim {

namespace {

const char kConvertPath[] = "/kxconvert/toPdf";
const char kPsConvPath[] = "/kxconvert/ps_conv.php";
const char kFilesPath[] = "/kxconvert/files/";

// Codes of the flat errCode/msg replies; 1004 and 1009 as the seal server's.
enum ConvertCode {
    kBadEquipment = 1004,
    kBadRequest = 1009,
    kNeedsFiles = 4000,
    kMissingFile = 4001,
};

struct ConvertState {
    std::map<int, std::string> pdfs;  // by number, served under kFilesPath
    int next = 1;
};

ConvertState& State() {
    static ConvertState* state = new ConvertState();  // lives until exit
    return *state;
}

void Reply(httplib::Response& res, int code, const std::string& msg,
           Json::Value body = Json::Value(Json::objectValue)) {
    body["errCode"] = code;
    body["msg"] = msg;
    ReplyJson(res, body);
}

// Printable ASCII of a text's lines, each at most 90 characters (longer ones wrap).
std::vector<std::string> TextLines(const std::string& text) {
    std::vector<std::string> lines(1);
    for (char c : text) {
        if (c == '\n') {
            lines.emplace_back();
            continue;
        }
        if (c == '\r') continue;
        if (lines.back().size() == 90) lines.emplace_back();
        lines.back() += (c >= 0x20 && c < 0x7F) ? c : '?';
    }
    return lines;
}

std::string PdfString(const std::string& line) {
    std::string out = "(";
    for (char c : line) {
        if (c == '(' || c == ')' || c == '\\') out += '\\';
        out += c;
    }
    return out + ")";
}

// A PDF 1.4 of the lines in Helvetica, 60 to a page.
std::string MakePdf(const std::vector<std::string>& lines) {
    const size_t perPage = 60;
    const size_t pages = lines.empty() ? 1 : (lines.size() + perPage - 1) / perPage;
    std::vector<std::string> objects;
    std::string kids;
    for (size_t p = 0; p < pages; ++p) kids += std::to_string(4 + 2 * p) + " 0 R ";
    objects.push_back("<< /Type /Catalog /Pages 2 0 R >>");
    objects.push_back("<< /Type /Pages /Kids [" + kids + "] /Count " + std::to_string(pages) +
                      " >>");
    objects.push_back("<< /Type /Font /Subtype /Type1 /BaseFont /Helvetica >>");
    for (size_t p = 0; p < pages; ++p) {
        std::string content = "BT /F1 10 Tf 12 TL 40 800 Td\n";
        for (size_t i = p * perPage; i < lines.size() && i < (p + 1) * perPage; ++i)
            content += PdfString(lines[i]) + " Tj T*\n";
        content += "ET\n";
        objects.push_back(
            "<< /Type /Page /Parent 2 0 R /MediaBox [0 0 595 842] /Resources << "
            "/Font << /F1 3 0 R >> >> /Contents " +
            std::to_string(5 + 2 * p) + " 0 R >>");
        objects.push_back("<< /Length " + std::to_string(content.size()) + " >>\nstream\n" +
                          content + "endstream");
    }
    std::string pdf = "%PDF-1.4\n%\xE2\xE3\xCF\xD3\n";
    std::vector<size_t> offsets;
    for (size_t i = 0; i < objects.size(); ++i) {
        offsets.push_back(pdf.size());
        pdf += std::to_string(i + 1) + " 0 obj\n" + objects[i] + "\nendobj\n";
    }
    const size_t xref = pdf.size();
    pdf += "xref\n0 " + std::to_string(objects.size() + 1) + "\n0000000000 65535 f \n";
    for (size_t offset : offsets) {
        char entry[24];
        std::snprintf(entry, sizeof entry, "%010zu 00000 n \n", offset);
        pdf += entry;
    }
    pdf += "trailer\n<< /Size " + std::to_string(objects.size() + 1) +
           " /Root 1 0 R >>\nstartxref\n" + std::to_string(xref) + "\n%%EOF\n";
    return pdf;
}

// The names of a PostScript document's "%%IncludeFile: name" lines.
std::vector<std::string> IncludedFiles(const std::string& ps) {
    std::vector<std::string> names;
    std::istringstream in(ps);
    const std::string tag = "%%IncludeFile:";
    for (std::string line; std::getline(in, line);) {
        if (line.compare(0, tag.size(), tag) != 0) continue;
        std::istringstream rest(line.substr(tag.size()));
        std::string name;
        if (rest >> name) names.push_back(name);
    }
    return names;
}

// Keeps the PDF and answers its URL.
void Converted(Sim& sim, httplib::Response& res, const std::vector<std::string>& lines) {
    const std::string pdf = MakePdf(lines);
    int number = 0;
    {
        std::lock_guard<std::mutex> lock(sim.mutex());
        number = State().next++;
        State().pdfs[number] = pdf;
    }
    Json::Value body(Json::objectValue);
    body["pdf_url"] = sim.baseUrl() + kFilesPath + std::to_string(number) + ".pdf";
    Reply(res, 0, "success", body);
}

std::string Upper(std::string s) {
    for (char& c : s) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return s;
}

void Convert(Sim& sim, const httplib::Request& req, httplib::Response& res) {
    if (req.get_file_value("equipId").content.size() != 32)
        return Reply(res, kBadEquipment, "equipId is required");
    if (!req.has_file("file") || req.get_file_value("saveToDisk").content != "1")
        return Reply(res, kBadRequest, "a file and saveToDisk=1 are required");
    const httplib::MultipartFormData file = req.get_file_value("file");
    const size_t dot = file.filename.rfind('.');
    const std::string extension = dot == std::string::npos ? "" : file.filename.substr(dot + 1);
    const std::string doctype = req.get_file_value("doctype").content;
    if (doctype != Upper(extension))
        return Reply(res, kBadRequest, "doctype does not match the file");
    if (doctype == "PS" && !IncludedFiles(file.content).empty()) {
        Json::Value body(Json::objectValue);
        body["res_file"] = Json::Value(Json::arrayValue);
        for (const std::string& name : IncludedFiles(file.content)) body["res_file"].append(name);
        body["ps_file"] = file.filename;
        return Reply(res, kNeedsFiles, "the document needs its dependent files", body);
    }
    Converted(sim, res, TextLines(file.content));
}

// The dependent files arrive with the PostScript document itself.
void ConvertPs(Sim& sim, const httplib::Request& req, httplib::Response& res) {
    const auto ps = req.files.equal_range("ps_file");
    const httplib::MultipartFormData* document = nullptr;
    for (auto it = ps.first; it != ps.second; ++it)
        if (!it->second.filename.empty()) document = &it->second;
    if (document == nullptr) return Reply(res, kBadRequest, "ps_file must carry the document");
    std::vector<std::string> lines = TextLines(document->content);
    const auto res_files = req.files.equal_range("res_file");
    for (const std::string& name : IncludedFiles(document->content)) {
        const httplib::MultipartFormData* found = nullptr;
        for (auto it = res_files.first; it != res_files.second; ++it)
            if (it->second.filename == name) found = &it->second;
        if (found == nullptr) return Reply(res, kMissingFile, "dependent file missing: " + name);
        lines.push_back("[" + name + ": " + std::to_string(found->content.size()) + " bytes]");
    }
    Converted(sim, res, lines);
}

}  // namespace

void InstallConvertService(Sim& sim) {
    sim.Post(kConvertPath, [&sim](const httplib::Request& req, httplib::Response& res) {
        Convert(sim, req, res);
    });
    sim.Post(kPsConvPath, [&sim](const httplib::Request& req, httplib::Response& res) {
        ConvertPs(sim, req, res);
    });
    sim.Get(std::string(kFilesPath) + R"((\d+)\.pdf)",
            [&sim](const httplib::Request& req, httplib::Response& res) {
                std::lock_guard<std::mutex> lock(sim.mutex());
                const auto it = State().pdfs.find(std::atoi(req.matches[1].str().c_str()));
                if (it == State().pdfs.end()) {
                    res.status = 404;
                    res.set_content("no such file", "text/plain");
                    return;
                }
                res.set_content(it->second, "application/pdf");
            });
}

std::string ConvertServiceConfig(const Sim&) {
    return std::string("[OpenApiURL]\nconvertToPdfUrl=") + kConvertPath + "\n";
}

}  // namespace kxsim
