// found.c - a library that is found by the search path of the program that loads it alone.
int injectorFound(void);
int injectorFound(void) { return 1; }
