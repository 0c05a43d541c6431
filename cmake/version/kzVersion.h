// What this build is: the version of the project and the commit it was made from.
#pragma once

// "1.0.0 (commit 1a2b3c4d5e6f)"; "+" behind the commit when files had changed since. Lives for ever.
extern const char* const kzVersion;
