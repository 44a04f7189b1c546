#include "utils/DelLinkRequest.h"

#include <cstring>

#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <net/if.h>

namespace {

constexpr size_t kLinkHeader = NLMSG_LENGTH(sizeof(ifinfomsg));
static_assert(kLinkHeader == 32);
static_assert(DelLinkRequest::kMaxName + 1 == IF_NAMESIZE);
static_assert(kLinkHeader + RTA_SPACE(IF_NAMESIZE) <= DelLinkRequest::kBufferSize);

} // namespace

std::span<const uint8_t> DelLinkRequest::Fill(std::string_view name, unsigned index,
                                              uint32_t sequence) {
    name = name.substr(0, kMaxName);
    const auto attributeLength = static_cast<uint16_t>(RTA_LENGTH(name.size() + 1));

    nlmsghdr header{};
    header.nlmsg_len = static_cast<uint32_t>(kLinkHeader + RTA_ALIGN(attributeLength));
    header.nlmsg_type = RTM_DELLINK;
    header.nlmsg_flags = NLM_F_REQUEST | NLM_F_ACK;
    header.nlmsg_seq = sequence;
    header.nlmsg_pid = port_;
    ifinfomsg link{};
    link.ifi_index = static_cast<int>(index);
    rtattr attribute{};
    attribute.rta_len = attributeLength;
    attribute.rta_type = IFLA_IFNAME;

    std::memcpy(buffer_, &header, sizeof(header));
    std::memcpy(buffer_ + NLMSG_HDRLEN, &link, sizeof(link));
    std::memcpy(buffer_ + kLinkHeader, &attribute, sizeof(attribute));
    uint8_t* const text = buffer_ + kLinkHeader + RTA_LENGTH(0);
    std::memcpy(text, name.data(), name.size());
    text[name.size()] = '\0';
    // The padding behind the terminator keeps what a longer name left there: nobody reads it.
    return {buffer_, header.nlmsg_len};
}
