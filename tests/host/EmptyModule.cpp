// A shared module that registers nothing: not a tool plug-in.
int LumivaneTestEmptyModule() { return 0; }
