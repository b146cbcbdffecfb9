// Names of the files that belong to a request.
//
// - Each function has its own static buffer of kCmPathSize bytes. A name that
//   does not fit is the empty text.
#ifndef FAXSERVER_FSFILES_H_
#define FAXSERVER_FSFILES_H_

// The request file: requests/r-<seqno>, or expired/x-<seqno>.
const char* fx_freq_file(const char* root, long seqno, int expired);
// The request's fax and cover page: temp/f-<seqno>.fax, temp/c-<seqno>.fax.
const char* fx_fax_file(const char* root, long seqno);
const char* fx_cvr_file(const char* root, long seqno);
// The same before there is a number: temp/f-<pid>-<n>.fax with the first n from
// 0 to 998 that is no regular file, or 998. The file is not made.
const char* fx_fax_tmp_file(const char* root);
const char* fx_cvr_tmp_file(const char* root);
// <dir>/fx<pid>.<ext>, five digits at least; "/tmp" and "tmp" for null. In
// fstmpf.
const char* fx_tmpname(const char* dir, const char* ext);

#endif  // FAXSERVER_FSFILES_H_
