// A certificate authority made at test time, and a server certificate it
// signed for localhost / 127.0.0.1. PEM files live in a temporary directory
// that is removed when the process ends.
#pragma once

#include <string>

namespace kxtest {

class TestCA {
public:
    // The authority the loopback HTTPS servers use. Made once per process:
    // key generation takes time.
    static const TestCA& instance();
    // A second authority that signed nothing instance() did: trusting it
    // alone must make a handshake with an instance() server fail.
    static const TestCA& unrelated();
    // Server certificates a client that trusts instance() must refuse: one
    // whose validity has ended, one for another host, one signed by its own
    // key. caFile() is instance()'s.
    enum class Flaw { Expired, WrongHost, SelfSigned };
    static const TestCA& flawed(Flaw flaw);

    const std::string& dir() const { return dir_; }
    const std::string& caFile() const { return caFile_; }      // the CA certificate
    const std::string& certFile() const { return certFile_; }  // server certificate
    const std::string& keyFile() const { return keyFile_; }    // server private key

    TestCA(const TestCA&) = delete;
    TestCA& operator=(const TestCA&) = delete;
    ~TestCA();

private:
    explicit TestCA(const std::string& name);
    TestCA(const TestCA& issuer, Flaw flaw);
    void removeFiles();

    std::string dir_;
    std::string caFile_;
    std::string certFile_;
    std::string keyFile_;
};

}  // namespace kxtest
