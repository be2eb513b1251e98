/* Not a whole module: postprocess_ is missing. */
int preprocess_(void)
{
    return 0;
}

int process_(void)
{
    return 0;
}
