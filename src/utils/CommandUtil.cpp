#include "utils/CommandUtil.h"

#include "utils/Console.h"
#include "utils/DelLinkRequest.h"
#include "utils/ShellCommand.h"
#include "utils/UniqueFd.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>
#include <memory>
#include <optional>
#include <regex>
#include <sstream>
#include <stdexcept>
#include <string_view>

#include <dirent.h>
#include <fcntl.h>
#include <ifaddrs.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr auto kListNetns = "ip netns list";

// False for what can be the name of no interface and no namespace: an empty text, one that a
// command would take for an option, and one with a "/", a blank or a control character.
bool CanBeName(const std::string& name) {
    const auto isForbidden = [](char c) {
        const auto byte = static_cast<unsigned char>(c);
        constexpr unsigned char kDelete = 0x7f;
        return c == '/' || byte <= ' ' || byte == kDelete;
    };
    return !name.empty() && name.front() != '-' &&
           std::none_of(name.begin(), name.end(), isForbidden);
}

// `name` as one word of a shell command. A daemon that runs as root must not let a name end one
// command and begin another.
std::string ShellWord(const std::string& name) {
    const auto isPlain = [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
               std::string_view("_.:@-").find(c) != std::string_view::npos;
    };
    if (std::all_of(name.begin(), name.end(), isPlain)) {
        return name;
    }
    std::string word = "'";
    for (const char c : name) {
        if (c == '\'') {
            word += R"('\'')"; // ends the quotes, adds a quote of its own, begins them again
        } else {
            word += c;
        }
    }
    return word + "'";
}

// The whole of `text` as a decimal number.
template <typename T> std::optional<T> ToNumber(std::string_view text) {
    T value{};
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc{} || end != text.data() + text.size()) {
        return std::nullopt;
    }
    return value;
}

// The names in a directory in its own order, without "." and ".."; none when it does not open.
std::vector<std::string> Entries(const std::string& path) {
    std::vector<std::string> names;
    const std::unique_ptr<DIR, int (*)(DIR*)> dir(opendir(path.c_str()), closedir);
    if (!dir) {
        return names;
    }
    while (const dirent* entry = readdir(dir.get())) {
        const std::string name = entry->d_name;
        if (name != "." && name != "..") {
            names.push_back(name);
        }
    }
    return names;
}

void OpenEmpty(const std::string& path) {
    constexpr mode_t kMode = 0666; // less the umask
    const UniqueFd file(open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, kMode));
}

constexpr size_t kReplySize = 4096; // bytes of what the kernel answers, at most

// The result of a system call, which is made again when a signal came between.
template <typename Call> ssize_t Retry(Call call) {
    ssize_t result = 0;
    do {
        result = call();
    } while (result < 0 && errno == EINTR);
    return result;
}

} // namespace

std::shared_ptr<CommandUtil> CommandUtil::GetInstance() {
    static const auto instance = std::make_shared<CommandUtil>();
    return instance;
}

void CommandUtil::Kill(pid_t pid) {
    kill(pid, SIGTERM);
}

void CommandUtil::Kill(const std::string& name) {
    for (const pid_t pid : GetPidsByName(name)) {
        Kill(pid);
    }
}

bool CommandUtil::Exists(const std::string& path) {
    struct stat info {};
    return lstat(path.c_str(), &info) == 0;
}

void CommandUtil::Create(const std::string& path) {
    const size_t slash = path.rfind('/');
    if (slash != std::string::npos && slash != 0) {
        const std::string parent = path.substr(0, slash);
        struct stat info {};
        if (stat(parent.c_str(), &info) != 0) {
            Create(parent);
        } else if (!S_ISDIR(info.st_mode)) {
            return;
        }
    }
    OpenEmpty(path);
}

void CommandUtil::ClearContent(const std::string& path) {
    OpenEmpty(path);
}

void CommandUtil::Rm(const std::string& path) {
    struct stat info {};
    if (lstat(path.c_str(), &info) != 0) {
        return;
    }
    if (S_ISREG(info.st_mode) || S_ISLNK(info.st_mode)) {
        unlink(path.c_str());
    } else if (S_ISDIR(info.st_mode)) {
        const std::string inside = path + "/";
        for (const auto& name : Entries(path)) {
            Rm(inside + name);
        }
        rmdir(path.c_str());
    }
}

std::vector<std::string> CommandUtil::Ls(const std::string& path) {
    struct stat info {};
    if (lstat(path.c_str(), &info) != 0) {
        return {};
    }
    if (!S_ISDIR(info.st_mode)) {
        const size_t slash = path.rfind('/');
        return {slash == std::string::npos ? path : path.substr(slash + 1)};
    }
    auto names = Entries(path);
    std::sort(names.begin(), names.end());
    return names;
}

std::vector<std::string> CommandUtil::GetIfaces() {
    std::vector<std::string> names;
    ifaddrs* list = nullptr;
    if (getifaddrs(&list) != 0) {
        return names;
    }
    const std::unique_ptr<ifaddrs, void (*)(ifaddrs*)> owner(list, freeifaddrs);
    for (const ifaddrs* at = list; at != nullptr; at = at->ifa_next) {
        if (at->ifa_name == nullptr || (at->ifa_flags & IFF_LOOPBACK) != 0) {
            continue;
        }
        if (std::find(names.begin(), names.end(), at->ifa_name) == names.end()) {
            names.emplace_back(at->ifa_name);
        }
    }
    return names;
}

void CommandUtil::DelIface(const std::string& name) {
    if (!CanBeName(name)) {
        return;
    }
    const std::string word = ShellWord(name);
    if (system(("ip link delete " + word).c_str()) != 0) {
        const int ignored =
            system(("ifconfig " + word + " down && ifconfig " + word + " del").c_str());
        static_cast<void>(ignored);
    }
}

void CommandUtil::DelIfaces(const std::vector<std::string>& names) {
    if (names.empty()) {
        return;
    }
    const UniqueFd netlink(socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE));
    sockaddr_nl address{};
    address.nl_family = AF_NETLINK;
    if (!netlink ||
        bind(netlink.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
        perror("Failed to open a netlink socket");
        return;
    }
    DelLinkRequest request(static_cast<uint32_t>(getpid()));
    for (size_t i = 0; i < names.size(); ++i) {
        const std::string name = names[i].substr(0, names[i].find('\0')); // what the kernel sees
        const unsigned index = if_nametoindex(name.c_str());
        if (index == 0) {
            std::cerr << "Interface '" << name << "' not found: " << strerror(errno) << std::endl;
            continue;
        }
        const auto message = request.Fill(name, index, static_cast<uint32_t>(i + 1));
        if (Retry([&] { return send(netlink.get(), message.data(), message.size(), 0); }) < 0) {
            perror(("Failed to send DEL request for " + name).c_str());
            continue;
        }
        struct {
            nlmsghdr header;
            nlmsgerr error;
            uint8_t rest[kReplySize - sizeof(nlmsghdr) - sizeof(nlmsgerr)];
        } reply{};
        if (Retry([&] { return recv(netlink.get(), &reply, sizeof(reply), 0); }) < 0) {
            perror(("Failed to receive ACK for " + name).c_str());
            continue;
        }
        if (reply.header.nlmsg_type == NLMSG_ERROR && reply.error.error != 0) {
            std::cerr << "Deletion failed for " << name << ": " << strerror(-reply.error.error)
                      << std::endl;
        }
    }
}

void CommandUtil::DelAllNetns() {
    for (const auto& name : ListNetns()) {
        DelNetns(name);
    }
}

std::vector<pid_t> CommandUtil::GetPidsByName(const std::string& name) {
    std::vector<pid_t> pids;
    for (const auto& entry : Entries("/proc")) {
        const auto pid = ToNumber<pid_t>(entry);
        if (!pid || *pid == getpid()) {
            continue;
        }
        std::ifstream comm("/proc/" + entry + "/comm");
        std::string line;
        if (std::getline(comm, line) && line == name) {
            pids.push_back(*pid);
        }
    }
    return pids;
}

int CommandUtil::GetNetnsId(const std::string& name) {
    ShellCommand command(kListNetns);
    if (!command) {
        throw std::runtime_error(std::string("Failed to execute command: ") + kListNetns);
    }
    std::istringstream lines(command.Rest());
    command.Wait();
    try {
        const std::regex pattern(name + "\\s*\\(id:\\s*(\\d+)\\)");
        for (std::string line; std::getline(lines, line);) {
            std::smatch match;
            if (!std::regex_search(line, match, pattern) || match.size() != 2) {
                continue;
            }
            if (const auto id = ToNumber<int>(match[1].str())) {
                return *id;
            }
        }
    } catch (const std::regex_error&) {
        // A name that is no pattern, such as one with a lone bracket, is found nowhere.
    }
    PrintLine("netns " + name + " not found");
    return -1;
}

std::vector<std::string> CommandUtil::ListNetns() {
    ShellCommand command(kListNetns);
    if (!command) {
        throw std::runtime_error("popen() failed!");
    }
    std::vector<std::string> names;
    while (const auto piece = command.Piece()) {
        std::string word;
        std::istringstream(*piece) >> word; // "blue (id: 3)" and "blue(id:" alike end in "blue"
        word.resize(std::min(word.find('('), word.size()));
        if (!word.empty()) {
            names.push_back(word);
        }
    }
    std::sort(names.begin(), names.end());
    names.erase(std::unique(names.begin(), names.end()), names.end());
    return names;
}

void CommandUtil::DelNetns(const std::string& name) {
    const std::string failure = "Failed to delete netns '" + name + "': ";
    if (!CanBeName(name)) {
        throw std::runtime_error(failure + "no namespace can have this name");
    }
    ShellCommand command("ip netns del " + ShellWord(name) + " 2>&1");
    if (!command) {
        throw std::runtime_error("popen() failed!");
    }
    const std::string output = command.Rest();
    const int status = command.Wait();
    if (WIFEXITED(status) && WEXITSTATUS(status) != 0) {
        throw std::runtime_error(failure + output);
    }
    if (WIFSIGNALED(status)) {
        throw std::runtime_error("Command killed by signal " + std::to_string(WTERMSIG(status)));
    }
}
