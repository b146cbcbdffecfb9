// The option parser of every program of this system.
//
// - Single-letter options with the usual rules (-x, -xyz, -L file, -Lfile) and
//   some of its own, which callers depend on: "--" ends the options, "#" in the
//   option string takes numeric options such as -5, an unknown letter is
//   reported by the result alone.
// - The state is process-wide. Its names carry the prefix since the plain ones
//   belong to the C library's own parser, which this one does not touch.
// - `Kut_optarg` points into `argv`; nothing is allocated.
#ifndef UTIL_KUTOPT_H_
#define UTIL_KUTOPT_H_

extern int Kut_optind;          // index of the next argument, at first 1
extern const char* Kut_optarg;  // the option's argument, or null
extern int Kut_optopt;          // the letter that was looked at last
extern int Kut_optsw;           // the switch character of the current argument

// The next option of `argv`: its letter; '#' for a numeric option, whose text
// from the digit on is `Kut_optarg`; '?' for a letter that is not in
// `optstring`, and, after a line on standard error, for an option whose
// argument is missing; -1 when there are no more options, `Kut_optind` then
// being the index of the first other argument.
int Kut_optget(int argc, const char* const* argv, const char* optstring);

// Back to the state before the first call.
void Kut_optreset();

#endif  // UTIL_KUTOPT_H_
