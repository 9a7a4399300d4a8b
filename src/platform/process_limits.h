#pragma once
// Limits of the running process.

namespace corvel {

// Raises the soft limit on open descriptors to the hard limit. A removal keeps a few
// descriptors open per folder of the copies it moves together, and desktop sessions often
// start programs with a soft limit of 1,024. Answers the soft limit now in force (0 when
// it cannot be read).
unsigned long raiseOpenFileLimit();

} // namespace corvel
