/* Not a whole module: process_ is missing. */
int preprocess_(void)
{
    return 0;
}

int postprocess_(void)
{
    return 0;
}
