/// How the check tools tell the shell what they found.
#pragma once

enum tool_status : int {
  kNothingToSay = 0,  ///< all is taken as it stands
  kFindings = 1,      ///< something is refused, ignored or changed
  kUnusable = 2,  ///< a file cannot be used, the command line is wrong, or the daemon would not run
};
