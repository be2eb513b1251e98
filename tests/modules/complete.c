/* A module with everything that a module needs, which does nothing. */
int preprocess_(void)
{
    return 0;
}

int process_(void)
{
    return 0;
}

int postprocess_(void)
{
    return 0;
}
