/* What vellibrary_test loads. With PLUGIN_UNRESOLVED it calls a function that nobody has. */

int plugin_number = 4711;
int plugin_add(int a, int b);
void plugin_watch(int *unloadedptr);

static int *unloaded;

int plugin_add(int a, int b)
{
    return a + b;
}

/* What is pointed at is set to 1 when the library is unloaded. */
void plugin_watch(int *unloadedptr)
{
    unloaded = unloadedptr;
}

__attribute__((destructor)) static void plugin_unload(void)
{
    if (unloaded)
        *unloaded = 1;
}

#ifdef PLUGIN_UNRESOLVED
int plugin_nobody_has_this(void);
int plugin_call(void);

int plugin_call(void)
{
    return plugin_nobody_has_this();
}
#endif
