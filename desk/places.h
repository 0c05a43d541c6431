// Where the desk finds the files that it hands out, when the command line does not say: in share/kzdesk beside the
// program's own folder. A build has such a folder too.
#pragma once

#include <string>

namespace kzdesk {

std::string protocolPlace();
std::string webPlace();
// $KZ_CATALOGUE, else the camera's own.
std::string cataloguePlace();

}  // namespace kzdesk
