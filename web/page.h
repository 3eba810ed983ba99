// web/page.h: what the placeholders of a page become.
#ifndef WEB_PAGE_H
#define WEB_PAGE_H

#include <string>

#include "web/asked.h"
#include "web/conf.h"
#include "web/filter.h"
#include "web/texts.h"

// The page that is filled; all of it outlives the page.
struct PageView {
  const WebConf *conf;
  const Texts *texts;
  const Asked *asked;
  bool front = false;  // the form, whatever went wrong
};

std::string Page_Fill(const PageView &view, Placeholder which, const PageFacts &facts);

// The front page, whose frame is the text: with a trouble its notice stands on it.
std::string Page_Front(const PageView &view, const std::string &frame, Trouble trouble);

#endif
