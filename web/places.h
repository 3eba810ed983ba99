// web/places.h: where korvo-web looks for its files when nothing says so.
#ifndef WEB_PLACES_H
#define WEB_PLACES_H

inline constexpr const char *kWebConf = "/usr/local/korvo/etc/korvo-web.conf";
inline constexpr const char *kWebMacros = "/usr/local/korvo/share/korvo/web";
inline constexpr const char *kWebStatic = "/usr/local/korvo/share/korvo/web/static";
inline constexpr const char *kWebFront = "/usr/local/korvo/share/korvo/web/front.html";
inline constexpr const char *kWebTexts = "/usr/local/korvo/share/korvo/web/texts.en";

#endif
