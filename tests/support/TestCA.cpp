#include "TestCA.h"

#include <unistd.h>

#include <cstdlib>
#include <stdexcept>
#include <vector>

#include "KXPki.h"

namespace kxtest {

namespace {

std::string MakeTempDir() {
    const char* tmp = std::getenv("TMPDIR");
    std::string pattern =
        std::string(tmp != nullptr && *tmp != '\0' ? tmp : "/tmp") + "/kxtest-ca.XXXXXX";
    std::vector<char> buffer(pattern.begin(), pattern.end());
    buffer.push_back('\0');
    if (mkdtemp(buffer.data()) == nullptr) throw std::runtime_error("TestCA: mkdtemp failed");
    return buffer.data();
}

}  // namespace

TestCA::TestCA(const std::string& name) : dir_(MakeTempDir()) {
    kxpki::Authority authority;
    if (!authority.Load(dir_, name)) {
        removeFiles();
        throw std::runtime_error("TestCA: cannot make the authority " + name);
    }
    caFile_ = authority.caFile();
    certFile_ = authority.certFile();
    keyFile_ = authority.keyFile();
}

TestCA::~TestCA() {
    removeFiles();
}

void TestCA::removeFiles() {
    for (const char* name : {"ca.pem", "ca.key", "server.pem", "server.key"}) {
        ::unlink((dir_ + "/" + name).c_str());
    }
    if (!dir_.empty()) ::rmdir(dir_.c_str());
}

const TestCA& TestCA::instance() {
    static const TestCA ca("KXServerApi test");
    return ca;
}

const TestCA& TestCA::unrelated() {
    static const TestCA ca("Unrelated test");
    return ca;
}

}  // namespace kxtest
