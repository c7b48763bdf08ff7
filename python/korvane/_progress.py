"""Progress bars by tqdm, where it is installed."""


def bar():
    """A callable for `progress`: one bar for each task; None where there is no tqdm."""
    try:
        from tqdm.auto import tqdm
    except ImportError:
        return None
    shown = {}

    def step(label, done, total):
        if label not in shown:
            shown[label] = tqdm(total=total, desc=label)
        one = shown[label]
        one.update(done - one.n)
        if done >= total:
            one.close()
            shown.pop(label)

    return step
