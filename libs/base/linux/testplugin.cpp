// A plug-in for the Library tests, built several times under different names.
extern "C" {

__attribute__((visibility("default"))) int mirelTestPluginAnswer() { return MIREL_PLUGIN_ANSWER; }

#ifdef MIREL_PLUGIN_LAZY
// Defined nowhere: the plug-in loads only when binding waits for the first call.
void mirelTestNeverDefined();
__attribute__((visibility("default"))) void mirelTestCallsTheUndefined() { mirelTestNeverDefined(); }
#endif
}
