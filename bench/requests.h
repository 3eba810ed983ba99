// bench/requests.h: what the services under measure are asked, as service_data.py writes it.
#ifndef BENCH_REQUESTS_H
#define BENCH_REQUESTS_H

#include <string>
#include <vector>

// The requests in a file, each behind its length in four bytes, the lowest first.  End the program
// where there are none.
std::vector<std::string> Requests_Read(const std::string &file);
void Requests_Write(const std::string &file, const std::vector<std::string> &requests);

// Sends one to a port of this machine and returns all that is answered.
std::string Requests_Ask(int port, const std::string &request);

#endif
