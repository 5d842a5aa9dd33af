// The frame of every page that a browser is shown: layout, style and the headers that keep others away from it. Pure.
// All that did not come out of this program goes through Escaped() first.
#pragma once

#include <string>

#include "sim/message.h"

namespace kivosim {

/// Safe in the text of an element and in a quoted attribute.
std::string Escaped(const std::string& text);

/// A page: `content` is HTML, `title` text, which is also the heading. `formTargets`: origins, besides the page's own,
/// that posting its form may lead to; browsers hold redirects after it to the list as well.
Response HtmlPage(int status, const std::string& title, const std::string& content,
                  const std::string& formTargets = "");

}  // namespace kivosim
