// The native library of the application "assets".
int sample_asset_answer(void);

int sample_asset_answer(void) { return 42; }
