// Linked into every test program of the thread sanitizer's build; read by its runtime at start.
//
// The reference count of std::exception_ptr lives in the system's libstdc++, which is not instrumented: the
// sanitizer does not see that the last release on one thread comes after the reads on another, and reports
// the exception's destructor. Boost's futures keep exceptions of types that they do not know in such
// pointers.
//
// Likewise the count of who uses the data of a boost::thread, which lies in the system's Boost: a
// continuation that starts a thread lets go of it on one thread, while the thread itself ends on another.
extern "C" const char* __tsan_default_suppressions() {
    return "race:std::__exception_ptr::exception_ptr::_M_release\n"
           "race:checked_delete<boost::detail::thread_data<\n";
}
