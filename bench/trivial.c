/* The floor for the start-up benchmark: a process that does nothing. */
int main(void) { return 0; }
