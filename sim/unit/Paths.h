#pragma once

// Paths below the unit's root: those of its system, and those that only the simulation knows. The
// former aren't shared with the product, so that a wrong path in the product shows.
constexpr char kPatcherSocket[] = "/home/i2c_server_sock";
constexpr char kRcServerSocket[] = "/tmp/rcseq_socket";
constexpr char kDspDevice[] = "/dev/PciDsp";
constexpr char kMediumDevice[] = "/dev/sda";
constexpr char kMountParent[] = "/mnt";

constexpr char kSimulation[] = "/sim";  // logs, settings and sockets
constexpr char kDspSocket[] = "/sim/dsp.sock";
constexpr char kMounts[] = "/sim/mounts";
constexpr char kMedium[] = "/medium";
