/* A broker library with no entry point at all: the loader must report the
 * missing factory. */
int cimcClientNoEntryPlaceholder(void);
int cimcClientNoEntryPlaceholder(void) { return 0; }
