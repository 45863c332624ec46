#pragma once

#include <sys/types.h>

#include <filesystem>

#include "support/owned_fd.h"

/// The namespaces of a fake host: a network that lasts as long as the object and, for an ordinary
/// user, the user namespace that it belongs to. Mounts belong to each process that enters.
/// The operations throw `std::system_error`.
class HostNamespaces {
  public:
    /// Makes them, with the loopback interface up.
    HostNamespaces();

    /// Takes the calling process to the network, the files stay as they are.
    /// REQUIRES: a process made for it, with one thread.
    void EnterNetwork() const;

    /// Takes the calling process to the host: its network, `root` as the root folder with the
    /// mounts that belong to it, folder /, user and group `uid`. REQUIRES: a process made for it,
    /// with one thread.
    void Enter(const std::filesystem::path& root, uid_t uid, bool kernelProc) const;

    /// Makes a process as `fork` does; for an ordinary user without the handlers that would start
    /// threads in it, because a process with threads cannot enter a user namespace.
    [[nodiscard]] pid_t Fork() const;

  private:
    void EnterUser(uid_t uid) const;

    bool m_IsRoot;  ///< of the real machine, or of as much of it as we can see
    OwnedFd m_User;
    OwnedFd m_Network;
};

/// Where a process on a fake host finds the kernel's /proc.
inline constexpr const char* kKernelProc = "/.kernel/proc";

/// The devices of the real machine that a fake host has in its /dev.
inline constexpr const char* kDevices[] = {"null", "zero", "full", "random", "urandom", "tty"};
