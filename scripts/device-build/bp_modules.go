// bp_modules prints the C++ modules of an Android.bp as Soong resolves them, as make variables
// for soong.mk: defaults applied, source globs expanded against the tree and exclusions taken
// out. It reads the file with Blueprint's own parser and fails on anything it does not model, so
// that what it prints is what Soong would build.
//
// Usage: bp_modules Android.bp (run from the directory that holds it)
package main

import (
	"fmt"
	"os"
	"regexp"
	"strings"

	"github.com/google/blueprint/parser"
	"github.com/google/blueprint/pathtools"
	"github.com/google/blueprint/proptools"
)

// The module types built here; every other cc_ type is refused, other types are not C++.
var builtTypes = map[string]bool{"cc_binary": true, "cc_test": true}

// The properties that decide how a module compiles and links, all of which soong.mk handles.
var listProperties = []string{"srcs", "exclude_srcs", "local_include_dirs", "cflags", "cppflags",
	"shared_libs", "static_libs"}
var protoProperties = []string{"type", "canonical_path_from_root"}

// The properties that change nothing in how the code compiles or links.
var inertProperties = map[string]bool{"name": true, "defaults": true, "vendor": true,
	"init_rc": true, "required": true, "test_suites": true}

// What make and the shell take as a plain word.
var plainWord = regexp.MustCompile(`^[A-Za-z0-9_./+-]+$`)

type module struct {
	typ   string
	name  string
	props *parser.Map
}

// The file read, which starts every message that has no position in it.
var bpFile = "Android.bp"

func fail(format string, args ...interface{}) {
	fmt.Fprintf(os.Stderr, format+"\n", args...)
	os.Exit(1)
}

func stringOf(m *parser.Map, name string) (string, bool) {
	p, found := m.GetProperty(name)
	if !found {
		return "", false
	}
	switch v := p.Value.Eval().(type) {
	case *parser.String:
		return v.Value, true
	case *parser.Bool:
		return fmt.Sprint(v.Value), true
	}
	fail("%s: %s is not a string or a bool", p.NamePos, name)
	return "", false
}

func listOf(m *parser.Map, name string) []string {
	p, found := m.GetProperty(name)
	if !found {
		return nil
	}
	list, ok := p.Value.Eval().(*parser.List)
	if !ok {
		fail("%s: %s is not a list", p.NamePos, name)
	}
	var values []string
	for _, e := range list.Values {
		s, ok := e.Eval().(*parser.String)
		if !ok {
			fail("%s: %s holds something other than strings", e.Pos(), name)
		}
		values = append(values, s.Value)
	}
	return values
}

// prependProperties applies a defaults module as Soong does: its lists come before the module's
// own, its maps merge member by member, and a value the module sets itself wins.
func prependProperties(dst, src *parser.Map) {
	for _, s := range src.Properties {
		if s.Name == "name" || s.Name == "defaults" {
			continue
		}
		d, found := dst.GetProperty(s.Name)
		if !found {
			dst.Properties = append(dst.Properties, &parser.Property{Name: s.Name,
				NamePos: s.NamePos, Value: s.Value.Eval().Copy()})
			continue
		}
		switch sv := s.Value.Eval().(type) {
		case *parser.List:
			dv, ok := d.Value.Eval().(*parser.List)
			if !ok {
				fail("%s: %s is not a list as in its defaults", d.NamePos, d.Name)
			}
			d.Value = &parser.List{Values: append(append([]parser.Expression{}, sv.Values...),
				dv.Values...)}
		case *parser.Map:
			dv, ok := d.Value.Eval().(*parser.Map)
			if !ok {
				fail("%s: %s is not a map as in its defaults", d.NamePos, d.Name)
			}
			prependProperties(dv, sv)
		}
	}
}

// applyDefaults takes the defaults modules depth first, each once, as Soong collects them.
func applyDefaults(m *module, byName map[string]*module) {
	seen := map[string]bool{}
	var visit func(names []string)
	visit = func(names []string) {
		for _, name := range names {
			d, found := byName[name]
			if !found || d.typ != "cc_defaults" {
				fail("%s: module %s: %q is not a cc_defaults module", bpFile, m.name, name)
			}
			if seen[name] {
				continue
			}
			seen[name] = true
			prependProperties(m.props, d.props)
			visit(listOf(d.props, "defaults"))
		}
	}
	visit(listOf(m.props, "defaults"))
}

func exists(path string) bool {
	_, err := os.Stat(path)
	return err == nil
}

// expandSrcs resolves srcs as Soong does: a glob (`**` matching any depth) lists the files it
// matches minus the excluded ones; a plain path must exist and goes unless excluded by name.
func expandSrcs(m *module, srcs, excludes []string) []string {
	var files []string
	for _, src := range srcs {
		if strings.HasPrefix(src, ":") {
			fail("%s: module %s: source %q names a module, which is not modelled", bpFile,
				m.name, src)
		}
		if !pathtools.IsGlob(src) {
			if !exists(src) {
				fail("%s: module %s: module source path %q does not exist", bpFile, m.name, src)
			}
			if !contains(excludes, src) {
				files = append(files, src)
			}
			continue
		}
		matches, _, err := pathtools.Glob(src, excludes, pathtools.FollowSymlinks)
		if err != nil {
			fail("%s: module %s: %s", bpFile, m.name, err)
		}
		for _, match := range matches {
			if !strings.HasSuffix(match, "/") {
				files = append(files, match)
			}
		}
	}
	return files
}

// expandExcludes lists the files that exclude_srcs names, for the record.
func expandExcludes(m *module, excludes []string) []string {
	var files []string
	for _, exclude := range excludes {
		if !pathtools.IsGlob(exclude) {
			files = append(files, exclude)
			continue
		}
		matches, _, err := pathtools.Glob(exclude, nil, pathtools.FollowSymlinks)
		if err != nil {
			fail("%s: module %s: %s", bpFile, m.name, err)
		}
		files = append(files, matches...)
	}
	return files
}

func contains(list []string, s string) bool {
	for _, e := range list {
		if e == s {
			return true
		}
	}
	return false
}

func checkProperties(m *module) {
	for _, p := range m.props.Properties {
		if !inertProperties[p.Name] && !contains(listProperties, p.Name) && p.Name != "proto" {
			fail("%s: module %s: property %s is not modelled", p.NamePos, m.name, p.Name)
		}
	}
	if p, found := m.props.GetProperty("proto"); found {
		protoMap, ok := p.Value.Eval().(*parser.Map)
		if !ok {
			fail("%s: module %s: proto is not a map", p.NamePos, m.name)
		}
		for _, pp := range protoMap.Properties {
			if !contains(protoProperties, pp.Name) {
				fail("%s: module %s: proto property %s is not modelled", pp.NamePos, m.name,
					pp.Name)
			}
		}
	}
}

func printVariable(m *module, name string, values []string) {
	fmt.Printf("%s.%s :=", m.name, name)
	for _, v := range values {
		if name == "cflags" || name == "cppflags" {
			v = strings.ReplaceAll(proptools.NinjaAndShellEscape(v), "#", `\#`)
		} else if !plainWord.MatchString(v) {
			fail("%s: module %s: %s entry %q is not a plain path or name", bpFile, m.name,
				name, v)
		}
		fmt.Printf(" %s", v)
	}
	fmt.Println()
}

func main() {
	if len(os.Args) != 2 {
		fail("usage: bp_modules Android.bp")
	}
	bpFile = os.Args[1]
	file, err := os.Open(bpFile)
	if err != nil {
		fail("%s", err)
	}
	tree, errs := parser.ParseAndEval(bpFile, file, parser.NewScope(nil))
	if len(errs) > 0 {
		for _, e := range errs {
			fmt.Fprintln(os.Stderr, e)
		}
		os.Exit(1)
	}

	var modules []*module
	byName := map[string]*module{}
	for _, def := range tree.Defs {
		pm, ok := def.(*parser.Module)
		if !ok || !strings.HasPrefix(pm.Type, "cc_") {
			continue
		}
		m := &module{typ: pm.Type, props: &pm.Map}
		m.name, _ = stringOf(m.props, "name")
		if !builtTypes[m.typ] && m.typ != "cc_defaults" {
			fail("%s: module type %s is not modelled", pm.TypePos, m.typ)
		}
		checkProperties(m)
		modules = append(modules, m)
		byName[m.name] = m
	}

	fmt.Println("# The C++ modules of Android.bp as Soong resolves them.")
	for _, m := range modules {
		if !builtTypes[m.typ] {
			continue
		}
		applyDefaults(m, byName)
		excludes := listOf(m.props, "exclude_srcs")
		fmt.Printf("modules += %s\n%s.type := %s\n", m.name, m.name, m.typ)
		printVariable(m, "srcs", expandSrcs(m, listOf(m.props, "srcs"), excludes))
		printVariable(m, "exclude_srcs", expandExcludes(m, excludes))
		for _, dir := range listOf(m.props, "local_include_dirs") {
			if !exists(dir) {
				fail("%s: module %s: module source path %q does not exist", bpFile, m.name,
					dir)
			}
		}
		// The lists after srcs and exclude_srcs, as they stand.
		for _, name := range listProperties[2:] {
			printVariable(m, name, listOf(m.props, name))
		}
		if p, found := m.props.GetProperty("proto"); found {
			protoMap := p.Value.Eval().(*parser.Map)
			for _, name := range protoProperties {
				value, _ := stringOf(protoMap, name)
				fmt.Printf("%s.proto.%s := %s\n", m.name, name, value)
			}
		}
	}
}
