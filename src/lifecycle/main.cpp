// Placeholder, completed with the process lifecycle.
int main() { return 0; }
