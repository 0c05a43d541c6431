// Where the desk finds the files that it hands out, when the command line does not say: beside the installed program,
// or else where the program was built.
#pragma once

#include <string>

namespace kzdesk {

std::string protocolPlace();
std::string webPlace();
// $KZ_CATALOGUE, else the camera's own.
std::string cataloguePlace();

}  // namespace kzdesk
