#pragma once

// What the program's waits are divided by, and the same where a busy machine must not look like a
// silent piano.
constexpr int kSpeed = 200;
constexpr int kSlowSpeed = 10;
