#pragma once

// What the program's open descriptors belong to.
enum class Owner : unsigned char {
    None,      // not opened through the library
    Stranger,  // opened, but not part of the unit
    File,      // a file of the unit
    Medium,    // a file on the medium
    Gone,      // a file on a medium that was pulled out since
    DspDevice,
    Socket,
    Tcp  // a socket of the machine's network
};

void SetOwner(int descriptor, Owner owner);
Owner OwnerOf(int descriptor);

inline bool IsSocket(Owner owner)
{
    return owner == Owner::Socket || owner == Owner::Tcp;
}

// True when calls on it are counted.
inline bool IsUnits(Owner owner)
{
    return owner > Owner::Stranger;
}

// The number of descriptors that the program has opened and not closed.
unsigned OpenDescriptors();

// Files get the time of the unit's clock, where there is one.
void StampFile(int descriptor);

bool HasMediumFiles();
// The medium was pulled out: its open files become useless.
void ForgetMediumFiles();
