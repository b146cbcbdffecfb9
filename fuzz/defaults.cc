// What all targets set for the sanitizers. Freed memory is kept from being used
// again about as long as one input takes: with more of it, most of the time
// goes into touching fresh pages.
extern "C" const char* __asan_default_options() {
  return "quarantine_size_mb=4:malloc_context_size=8:"
         "max_malloc_fill_size=256";
}
