/* Lacks process_. */
int preprocess_(void)
{
    return 0;
}

int postprocess_(void)
{
    return 0;
}
