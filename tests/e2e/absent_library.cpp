// A program and the shared library it needs; the program is linked with no
// search path to the library, so the dynamic loader refuses to start it.
#ifdef QV_ABSENT_LIBRARY
int qvAbsentLibraryAnswer() { return 0; }
#else
int qvAbsentLibraryAnswer();
int main() { return qvAbsentLibraryAnswer(); }
#endif
