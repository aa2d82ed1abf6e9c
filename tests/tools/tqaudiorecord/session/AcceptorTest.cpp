#include "session/Acceptor.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstddef>
#include <cstring>
#include <string>

namespace {

using namespace tqrecorder;

/// Until it goes, this process may open no descriptor.
class NoDescriptors {
  public:
    NoDescriptors() {
        getrlimit(RLIMIT_NOFILE, &before_);
        const tqcommon::Descriptor next(dup(STDIN_FILENO));
        rlimit few = before_;
        few.rlim_cur = static_cast<rlim_t>(next.get());
        setrlimit(RLIMIT_NOFILE, &few);
    }
    ~NoDescriptors() { setrlimit(RLIMIT_NOFILE, &before_); }
    NoDescriptors(const NoDescriptors&) = delete;
    NoDescriptors& operator=(const NoDescriptors&) = delete;

  private:
    rlimit before_{};
};

TEST(AcceptorTest, SaysThatItIsShortOfDescriptorsAndLetsInLater) {
    Acceptor acceptor;
    std::string error;
    ASSERT_TRUE(acceptor.open(error)) << error;
    const tqcommon::Descriptor client(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path + 1, acceptor.name().data(), acceptor.name().size());
    ASSERT_EQ(connect(client.get(), reinterpret_cast<const sockaddr*>(&address),
                      static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 +
                                             acceptor.name().size())),
              0);
    const Hello hello;
    ASSERT_EQ(send(client.get(), &hello, sizeof hello, 0), static_cast<ssize_t>(sizeof hello));
    {
        const NoDescriptors none;
        EXPECT_TRUE(acceptor.connections().empty());
        EXPECT_TRUE(acceptor.isShort());
    }
    EXPECT_EQ(acceptor.connections().size(), 1U);
    EXPECT_FALSE(acceptor.isShort());
}

}  // namespace
