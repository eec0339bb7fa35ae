// stated_peer_rsvd.cpp: a test build of rsvd. The daemon itself, with the
// caller hook installed: a request may state who asks ("test_peer"), so
// that who may do what is tested as any user without switching uids.
#include "daemon.h"

namespace {

bool statedPeer(const nlohmann::json &peer, rsvctl::Caller &caller)
{
    if (!peer.is_object() || !peer.contains("user") || !peer["user"].is_string() ||
        peer["user"].get<std::string>().empty() || !peer.contains("operator") || !peer["operator"].is_boolean())
        return false;
    caller.user = peer["user"].get<std::string>();
    caller.isOperator = peer["operator"].get<bool>();
    return true;
}

} // namespace

int main(int argc, char **argv)
{
    rsvd::setTestPeerHook(&statedPeer);
    return rsvd::run(argc, argv);
}
