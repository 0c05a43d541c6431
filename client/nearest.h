// "Did you mean": the known word that is closest to a wrong one.
#pragma once

#include <string>
#include <vector>

namespace kzclient {

// The first word that begins with the wrong one, else that with the fewest letters to change, add, drop or swap; empty
// when none is near. Case does not count; a hyphen, an underscore and a blank are the same.
std::string nearestWord(const std::string& wrong, const std::vector<std::string>& words);
// "; did you mean "photo"?", or nothing.
std::string didYouMean(const std::string& wrong, const std::vector<std::string>& words);

}  // namespace kzclient
