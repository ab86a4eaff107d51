// Pieces shared by the command loop and the tool settings.
#pragma once

#include <string>

#include "orvutil/cal_cmd.h"
#include "orvutil/orv_defs.h"

namespace calcmd {

// Formatted text to the tool output descriptor / to standard error.
void out(const char *fmt, ...) ORV_PRINTF(1, 2);
void err(const char *fmt, ...) ORV_PRINTF(1, 2);

// Reads one line (with its '\n' when there is one) of at most
// CALCMD_LINE_SIZE - 1 bytes from fd into *line, one byte at a time so that
// nothing after the line is consumed. The rest of a longer line is read and
// dropped with a message. false at end of input or on a read error.
bool read_line(PRFileDesc *fd, std::string *line);

}  // namespace calcmd
