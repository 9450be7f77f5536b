#include "SampleBuild.h"
#include "support/MachOImage.h"
#include "support/SecureServer.h"

#include <unistd.h>

#include <atomic>

namespace orvane {
namespace {

using testing::HasSubstr;

TEST(HTTPS, ReachesTheServiceOnlyIfItsCertificateIsTrusted) {
    std::atomic<int> requests = 0;
    const auto accept = [&](const support::HTTPRequest&) {
        ++requests;
        return support::HTTPAnswer{201};
    };
    const support::HTTPServer server(accept, support::secureServer("valid.pem"));
    SampleBuild build;
    build.arguments.emplace_back(64, 's');
    build.writeProduct("Sample App.app/Sample App", support::MachOImage(0x0100000C, 0).bytes());
    build.writeProduct("Sample App.app.dSYM/Contents/Resources/DWARF/Sample App", "symbols");
    build.environment["ORVANE_TEST_API_ENDPOINT"] = build.environment["ORVANE_TEST_SYMBOLS_ENDPOINT"] =
        server.url("");
    EXPECT_THAT(printed(build, 1), HasSubstr("Code=-1202 "));
    EXPECT_EQ(requests, 0);
    build.environment["SSL_CERT_FILE"] = support::certificatePath("valid.pem");
    printed(build, 0);
    EXPECT_EQ(requests, 2);

    // A machine without certificates, if the system lets a test create one.
    const std::string flags = geteuid() == 0 ? "-m" : "-rm", hide = "mount -t tmpfs none /etc/ssl";
    if (support::runShell("unshare " + flags + " " + hide).status != 0)
        GTEST_SKIP() << "no mount namespace";
    const std::vector<std::string> unshare = {"/usr/bin/unshare",       flags, "/bin/sh", "-c",
                                              hide + " && exec \"$@\"", "sh"};
    printed(build.launch(unshare), 0);
    build.environment.erase("SSL_CERT_FILE");
    EXPECT_THAT(printed(build.launch(unshare), 1), HasSubstr("no trusted certificates"));
}

} // namespace
} // namespace orvane
