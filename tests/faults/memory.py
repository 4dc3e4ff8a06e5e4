GOOD = ("went on", "ended in order", "not reached")
def run(fail_at=0):
    return 100 if not fail_at else ("went on", "")
