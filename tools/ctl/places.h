// tools/ctl/places.h: where korvoctl looks for its files when nothing says so.
#ifndef TOOLS_CTL_PLACES_H
#define TOOLS_CTL_PLACES_H

inline constexpr const char *kCtlDir = "/usr/local/korvo/etc";     // that of the programs
inline constexpr const char *kCtlMacros = "/usr/local/korvo/lib";  // the same
inline constexpr const char *kCtlMessages = "/usr/local/korvo/share/korvo/messages";
inline constexpr const char *kCtlState = "/run/korvo/told";

#endif
