// Stands in front of libcurl: every request is answered at once, with what the input says, and nothing is sent.
#pragma once

#include <string>

/// Status and body of every answer from now on.
void AnswerWith(long status, const std::string& body);
