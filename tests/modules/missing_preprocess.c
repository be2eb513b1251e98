/* Not a whole module: preprocess_ is missing. */
int process_(void)
{
    return 0;
}

int postprocess_(void)
{
    return 0;
}
