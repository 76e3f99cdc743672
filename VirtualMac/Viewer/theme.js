// Dark or light: as the system has it, until a person chooses.

const system = matchMedia('(prefers-color-scheme: dark)');

// The theme that "auto" stands for now.
export function shownTheme(theme) {
  if (theme !== 'auto') return theme;
  return system.matches ? 'dark' : 'light';
}

// Applies the store's theme; `recoloured` is called when the colours have changed.
export function followTheme(store, recoloured) {
  const apply = () => {
    const theme = shownTheme(store.get('theme'));
    if (document.documentElement.dataset.theme === theme) return;
    document.documentElement.dataset.theme = theme;
    recoloured();
  };
  store.on(['theme'], apply);
  system.addEventListener('change', apply);
  apply();
}
